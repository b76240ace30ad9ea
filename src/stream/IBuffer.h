#pragma once
/**
 * IBuffer: a buffer behind a handle. It adds nothing to IBaseModule; it
 * exists so that a dynamic cast can tell a buffer's handle from others.
 */
#include "modules/IBaseModule.h"

namespace GenTL {

class IBuffer : public IBaseModule {};

} // namespace GenTL
