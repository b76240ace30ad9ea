#include "HLogger.h"

namespace GenTL {

namespace {
IKestaLog* g_pLogger = nullptr;
boost::mutex g_mtx;
} // namespace

IKestaLog*& HLogger::Connection() {
    return g_pLogger;
}

boost::mutex& HLogger::SendMutex() {
    return g_mtx;
}

template class LayerLogger<HLogger>;

} // namespace GenTL
