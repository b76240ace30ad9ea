#include "api/InfoUtility.h"

#include <cstring>

namespace GenTL {

namespace {

// The helpers stamp their failures with the public operation's name.
int CheckTriple(const int* piType, const unsigned long* piSize, bool quiet, const char* function) {
    if (piSize != nullptr && piType != nullptr) {
        return GC_ERR_SUCCESS;
    }
    if (quiet) {
        return GC_ERR_INVALID_PARAMETER;
    }
    return detail::ReportErrorAt(GC_ERR_INVALID_PARAMETER,
                                 "either piSize=nullptr or piType=nullptr", function, __LINE__);
}

int TooSmall(unsigned long given, const char* what, unsigned long needed, bool quiet,
             const char* function) {
    if (quiet) {
        return GC_ERR_BUFFER_TOO_SMALL;
    }
    return detail::ReportErrorAt(GC_ERR_BUFFER_TOO_SMALL,
                                 "*piSize=" + std::to_string(given) + " < " + what + "=" +
                                     std::to_string(needed) + ". iSize must be >= len",
                                 function, __LINE__);
}

// The fixed-size forms share everything but the type code and the bytes.
template <typename T>
int SetScalar(const T& value, int typeCode, int* piType, void* pBuffer, unsigned long* piSize,
              bool quiet, const char* function) {
    if (int rc = CheckTriple(piType, piSize, quiet, function)) {
        return rc;
    }
    *piType = typeCode;
    if (pBuffer != nullptr) {
        if (*piSize < sizeof(T)) {
            return TooSmall(*piSize, "size", sizeof(T), quiet, function);
        }
        std::memcpy(pBuffer, &value, sizeof(T));
    }
    *piSize = sizeof(T);
    return GC_ERR_SUCCESS;
}

} // namespace

InfoUtility::~InfoUtility() = default;

int InfoUtility::SetInfo(const std::string& value, int* piType, void* pBuffer,
                         unsigned long* piSize, bool quiet) const {
    if (int rc = CheckTriple(piType, piSize, quiet, __func__)) {
        return rc;
    }
    *piType = INFO_DATATYPE_STRING;
    const unsigned long size = value.size() + 1;
    if (pBuffer != nullptr) {
        if (*piSize < size) {
            return TooSmall(*piSize, "len", size, quiet, __func__);
        }
        // The clearing supplies the terminator.
        std::memset(pBuffer, 0, *piSize);
        std::memcpy(pBuffer, value.data(), value.size());
    }
    *piSize = size;
    return GC_ERR_SUCCESS;
}

int InfoUtility::SetInfo(unsigned int value, int* piType, void* pBuffer, unsigned long* piSize,
                         bool quiet) const {
    return SetScalar(value, INFO_DATATYPE_UINT32, piType, pBuffer, piSize, quiet, __func__);
}

int InfoUtility::SetInfo(int value, int* piType, void* pBuffer, unsigned long* piSize,
                         bool quiet) const {
    return SetScalar(value, INFO_DATATYPE_INT32, piType, pBuffer, piSize, quiet, __func__);
}

int InfoUtility::SetInfo(unsigned long value, int* piType, void* pBuffer, unsigned long* piSize,
                         bool quiet) const {
    return SetScalar(value, INFO_DATATYPE_UINT64, piType, pBuffer, piSize, quiet, __func__);
}

int InfoUtility::SetInfo(long value, int* piType, void* pBuffer, unsigned long* piSize,
                         bool quiet) const {
    return SetScalar(value, INFO_DATATYPE_INT64, piType, pBuffer, piSize, quiet, __func__);
}

int InfoUtility::SetInfo(bool value, int* piType, void* pBuffer, unsigned long* piSize,
                         bool quiet) const {
    const unsigned char byte = value ? 1 : 0;
    return SetScalar(byte, INFO_DATATYPE_BOOL8, piType, pBuffer, piSize, quiet, __func__);
}

int InfoUtility::SetInfo(char* value, int* piType, void* pBuffer, unsigned long* piSize,
                         bool quiet) const {
    return SetScalar(value, INFO_DATATYPE_PTR, piType, pBuffer, piSize, quiet, __func__);
}

int InfoUtility::SetInfo(double value, int* piType, void* pBuffer, unsigned long* piSize,
                         bool quiet) const {
    return SetScalar(value, INFO_DATATYPE_FLOAT64, piType, pBuffer, piSize, quiet, __func__);
}

int InfoUtility::Refuse(int code, bool quiet) {
    return quiet ? code : detail::ReportBareError(code);
}

} // namespace GenTL
