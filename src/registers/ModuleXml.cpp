#include "registers/ModuleXml.h"

#include <algorithm>
#include <cstring>

#include "GenTL_KESTA.h"

namespace GenTL {

int ModuleXml::CopyTo(void* buffer, const unsigned long* requested) const {
    std::memcpy(buffer, data, std::min(size, *requested));
    return GC_ERR_SUCCESS;
}

} // namespace GenTL
