#include "GLogger.h"

namespace GenTL {

namespace {
IKestaLog* g_pLogger = nullptr;
boost::mutex g_mtx;
} // namespace

IKestaLog*& GLogger::Connection() {
    return g_pLogger;
}

boost::mutex& GLogger::SendMutex() {
    return g_mtx;
}

template class LayerLogger<GLogger>;

} // namespace GenTL
