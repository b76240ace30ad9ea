#pragma once
/**
 * Errors: the (code, text) stack that a failure leaves for GCGetLastError,
 * and the per-thread cache that keeps it.
 *
 * Use the two recording macros at the place that finds a failure:
 *   return ReportError(GC_ERR_INVALID_PARAMETER, "piSize==nullptr");
 *   if (int rc = inner()) return ChainError(rc);
 * ChainErrorText(code, text) adds a line of its own text to the stack in
 * the same way (for the "... became in unknown state" notes of the closes).
 * Each stamps "<function>():<line>: " in front of its line.
 */
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <thread>

#include <boost/thread/mutex.hpp>

namespace GenTL {

class Error {
public:
    Error() = default;
    Error(const Error&) = default;
    Error& operator=(const Error&) = default;
    virtual ~Error();

    /// Code of the newest pair; 0 when empty.
    virtual int Code() const;
    /// Text of the newest pair; empty when empty.
    virtual std::string Message() const;
    /// Table name of the newest code.
    virtual std::string CodeName() const;
    /// Kept identical to CodeName(): it returns the name, not the default text.
    virtual std::string CodeDefaultMessage() const;
    /// Removes the newest pair; GC_ERR_NO_DATA on an empty stack.
    virtual int PopError(int& code, std::string& name, std::string& text);
    virtual std::size_t NumErrors() const;

    static Error GenerateError(int code, const std::string& text);
    static Error GenerateError(int code);
    static Error GenerateSuccess();
    static Error& AppendError(Error& e, int code, const std::string& text);
    static Error& AppendError(Error& e, int code);

    /// "GenTL::GC_ERR_...(<code>)", or "::-::(<code>)" for unknown codes.
    static std::string GetErrCodeName(int code);
    /// Default text of a code, "Unknown error code" for unknown codes.
    static std::string GetMessageFromCode(int code);

private:
    std::deque<int32_t> m_codes;
    std::deque<std::string> m_messages;
};

/// One Error per thread, for GCGetLastError.
class ErrorCache {
public:
    virtual ~ErrorCache();

    static ErrorCache* GetErrorCache();
    static void ReleaseErrorCache();

    int Count();
    void OverwriteCachedErrorWith(Error e);
    int Pop(Error& e);
    int Peak(Error& e);
    void Clear();

    static bool isIGNORABLEInStartOfErrorMSG(const std::string& text);

    static ErrorCache* m_pCache;

private:
    ErrorCache() = default;
    boost::mutex m_mutex;
    std::map<std::thread::id, Error> m_errors;
};

/// Records e as the calling thread's error, replacing what it had.
void CacheError(const Error& e);

namespace detail {
int ReportErrorAt(int code, const std::string& text, const char* function, int line);
int ChainErrorAt(int code, const char* function, int line);
/// ChainErrorAt with a text of its own in place of the code's name; with
/// nothing cached it acts as ReportErrorAt.
int ChainErrorTextAt(int code, const std::string& text, const char* function, int line);
/// The bare form: default text, no stamp, no ":IGNORABLE:" test.
int ReportBareError(int code);
} // namespace detail

} // namespace GenTL

#define ReportError(code, text) ::GenTL::detail::ReportErrorAt((code), (text), __func__, __LINE__)
#define ChainError(code) ::GenTL::detail::ChainErrorAt((code), __func__, __LINE__)
#define ChainErrorText(code, text)                                                                 \
    ::GenTL::detail::ChainErrorTextAt((code), (text), __func__, __LINE__)
