#include "hal/AdapterHandle.h"

#include "hal/SocketHelper.h"

namespace GenTL {

AdapterHandle::AdapterHandle() = default;
AdapterHandle::~AdapterHandle() = default;

} // namespace GenTL
