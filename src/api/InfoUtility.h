#pragma once
/**
 * InfoUtility: the one place that fills the (piType, pBuffer, piSize) triple
 * of the *GetInfo functions from a native value, and that reads a native
 * value out of a caller's buffer. Stateless; modules hold one as a member.
 *
 * SetInfo writes the INFO_DATATYPE code to *piType first. A null pBuffer is
 * a size query: *piSize receives the size and the result is 0. A buffer that
 * is too small fails with GC_ERR_BUFFER_TOO_SMALL and leaves *piSize alone.
 * With quiet set, failures record nothing; otherwise they are stamped.
 */
#include <cstring>
#include <string>

#include "GenTL_KESTA.h"
#include "api/Error.h"

namespace GenTL {

namespace detail {

/// Type code and lowest acceptable buffer size of each GetInfo type.
template <typename T> struct InfoReadRule;
template <> struct InfoReadRule<short> {
    static constexpr int type = INFO_DATATYPE_INT16;
    static constexpr unsigned long minSize = 2;
};
template <> struct InfoReadRule<unsigned short> {
    static constexpr int type = INFO_DATATYPE_UINT16;
    static constexpr unsigned long minSize = 2;
};
template <> struct InfoReadRule<int> {
    static constexpr int type = INFO_DATATYPE_INT32;
    static constexpr unsigned long minSize = 4;
};
template <> struct InfoReadRule<unsigned int> {
    static constexpr int type = INFO_DATATYPE_UINT32;
    static constexpr unsigned long minSize = 4;
};
template <> struct InfoReadRule<long> {
    static constexpr int type = INFO_DATATYPE_INT64;
    static constexpr unsigned long minSize = 8;
};
template <> struct InfoReadRule<unsigned long> {
    static constexpr int type = INFO_DATATYPE_UINT64;
    static constexpr unsigned long minSize = 8;
};
template <> struct InfoReadRule<float> {
    static constexpr int type = INFO_DATATYPE_FLOAT64; // read as float all the same
    static constexpr unsigned long minSize = 4;
};
template <> struct InfoReadRule<double> {
    static constexpr int type = INFO_DATATYPE_FLOAT64;
    static constexpr unsigned long minSize = 8;
};
template <> struct InfoReadRule<void*> {
    static constexpr int type = INFO_DATATYPE_PTR;
    static constexpr unsigned long minSize = 8;
};
template <> struct InfoReadRule<bool> {
    static constexpr int type = INFO_DATATYPE_BOOL8;
    static constexpr unsigned long minSize = 1;
};
template <> struct InfoReadRule<char*> {
    static constexpr int type = INFO_DATATYPE_BUFFER;
    static constexpr unsigned long minSize = 8;
};
/// The caller's buffer holds a std::string object of this library (internal
/// calls only); the bound is the size of that object, not a text length.
template <> struct InfoReadRule<std::string> {
    static constexpr int type = INFO_DATATYPE_STRING;
    static constexpr unsigned long minSize = 32;
};

template <typename T> void ReadInfoValue(const void* pBuffer, T& value) {
    std::memcpy(&value, pBuffer, sizeof(T));
}
inline void ReadInfoValue(const void* pBuffer, bool& value) {
    value = *static_cast<const unsigned char*>(pBuffer) != 0;
}
inline void ReadInfoValue(const void* pBuffer, std::string& value) {
    value = *static_cast<const std::string*>(pBuffer);
}

} // namespace detail

class InfoUtility {
public:
    virtual ~InfoUtility();

    /// A text: type 1 (string), size length + 1. A fitting buffer is cleared
    /// over the whole of *piSize and receives the characters.
    virtual int SetInfo(const std::string& value, int* piType, void* pBuffer, unsigned long* piSize,
                        bool quiet) const;
    /// Type 6 (uint32), size 4.
    virtual int SetInfo(unsigned int value, int* piType, void* pBuffer, unsigned long* piSize,
                        bool quiet) const;
    /// Type 5 (int32), size 4.
    virtual int SetInfo(int value, int* piType, void* pBuffer, unsigned long* piSize,
                        bool quiet) const;
    /// Type 8 (uint64), size 8.
    virtual int SetInfo(unsigned long value, int* piType, void* pBuffer, unsigned long* piSize,
                        bool quiet) const;
    /// Type 7 (int64), size 8.
    virtual int SetInfo(long value, int* piType, void* pBuffer, unsigned long* piSize,
                        bool quiet) const;
    /// Type 11 (bool8), size 1.
    virtual int SetInfo(bool value, int* piType, void* pBuffer, unsigned long* piSize,
                        bool quiet) const;
    /// Type 10 (pointer), size 8: the pointer value itself, not its text.
    virtual int SetInfo(char* value, int* piType, void* pBuffer, unsigned long* piSize,
                        bool quiet) const;
    /// Type 9 (float64), size 8.
    virtual int SetInfo(double value, int* piType, void* pBuffer, unsigned long* piSize,
                        bool quiet) const;

    /**
     * Reads a T from a caller's buffer of iSize bytes that claims to hold
     * INFO_DATATYPE iType. A type other than T's code fails with
     * GC_ERR_INVALID_PARAMETER, a null or too small buffer with
     * GC_ERR_INVALID_BUFFER; both record the code's default text (no stamp)
     * unless quiet.
     */
    template <typename T>
    int GetInfo(int iType, const void* pBuffer, unsigned long iSize, T& value, bool quiet) const {
        using Rule = detail::InfoReadRule<T>;
        if (iType != Rule::type) {
            return Refuse(GC_ERR_INVALID_PARAMETER, quiet);
        }
        if (pBuffer == nullptr || iSize < Rule::minSize) {
            return Refuse(GC_ERR_INVALID_BUFFER, quiet);
        }
        detail::ReadInfoValue(pBuffer, value);
        return GC_ERR_SUCCESS;
    }

private:
    static int Refuse(int code, bool quiet);
};

} // namespace GenTL
