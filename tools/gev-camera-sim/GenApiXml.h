// The camera's GenApi description, compiled in from KestaSimCamera.xml.
#pragma once

#include <cstddef>

namespace gevsim {
extern const unsigned char kGenApiXml[];
extern const size_t kGenApiXmlSize;
} // namespace gevsim
