#include "api/Error.h"

#include <cassert>

#include "GenTL_KESTA.h"

namespace GenTL {

namespace {

struct CodeText {
    int code;
    const char* name;
    const char* text;
};

// The texts are the system's own, odd spelling included.
constexpr CodeText kCodes[] = {
    {GC_ERR_SUCCESS, "GenTL::GC_ERR_SUCCESS(0)", "Success treated as err"},
    {GC_ERR_ERROR, "GenTL::GC_ERR_ERROR(-1001)", "Generic error occurred"},
    {GC_ERR_NOT_INITIALIZED, "GenTL::GC_ERR_NOT_INITIALIZED(-1002)", "Not Initialized"},
    {GC_ERR_NOT_IMPLEMENTED, "GenTL::GC_ERR_NOT_IMPLEMENTED(-1003)", "Not Implemented"},
    {GC_ERR_RESOURCE_IN_USE, "GenTL::GC_ERR_RESOURCE_IN_USE(-1004)", "The Resource is in use"},
    {GC_ERR_ACCESS_DENIED, "GenTL::GC_ERR_ACCESS_DENIED(-1005)", "Access denied"},
    {GC_ERR_INVALID_HANDLE, "GenTL::GC_ERR_INVALID_HANDLE(-1006)", "Invalid Handle"},
    {GC_ERR_INVALID_ID, "GenTL::GC_ERR_INVALID_ID(-1007)", "Invalid Id"},
    {GC_ERR_NO_DATA, "GenTL::GC_ERR_NO_DATA(-1008)", "No Data Available"},
    {GC_ERR_INVALID_PARAMETER, "GenTL::GC_ERR_INVALID_PARAMETER(-1009)", "Invalid Parameter"},
    {GC_ERR_IO, "GenTL::GC_ERR_IO(-1010)", "I//O Error occurred"},
    {GC_ERR_TIMEOUT, "GenTL::GC_ERR_TIMEOUT(-1011)", "Operation Timed Out"},
    {GC_ERR_ABORT, "GenTL::GC_ERR_ABORT(-1012)", "Operation Aborted"},
    {GC_ERR_INVALID_BUFFER, "GenTL::GC_ERR_INVALID_BUFFER(-1013)", "Invalid Buffer"},
    {GC_ERR_NOT_AVAILABLE, "GenTL::GC_ERR_NOT_AVAILABLE(-1014)", "Not Available"},
    {GC_ERR_INVALID_ADDRESS, "GenTL::GC_ERR_INVALID_ADDRESS(-1015)", "Address is invalid"},
    {GC_ERR_BUFFER_TOO_SMALL, "GenTL::GC_ERR_BUFFER_TOO_SMALL(-1016)", "Buffer is too small"},
    {GC_ERR_INVALID_INDEX, "GenTL::GC_ERR_INVALID_INDEX(-1017)", "Invalid index"},
    {GC_ERR_PARSING_CHUNK_DATA, "GenTL::GC_ERR_PARSING_CHUNK_DATA(-1018)",
     "Error parsing chunk data"},
    {GC_ERR_INVALID_VALUE, "GenTL::GC_ERR_INVALID_VALUE(-1019)", "Invalid value"},
    {GC_ERR_RESOURCE_EXHAUSTED, "GenTL::GC_ERR_RESOURCE_EXHAUSTED(-1020)",
     "Resources have been exhausted"},
    {GC_ERR_OUT_OF_MEMORY, "GenTL::GC_ERR_OUT_OF_MEMORY(-1021)", "Out of memory"},
    {GC_ERR_BUSY, "GenTL::GC_ERR_BUSY(-1022)", "Busy"},
    {GC_ERR_CUSTOM_ID, "GenTL::GC_ERR_CUSTOM_ID(-10000)", "Custom id err"},
};

const CodeText* Find(int code) {
    for (const auto& entry : kCodes) {
        if (entry.code == code) {
            return &entry;
        }
    }
    return nullptr;
}

const char kIgnorable[] = ":IGNORABLE:";

std::string Stamp(const char* function, int line) {
    return std::string(function) + "():" + std::to_string(line) + ": ";
}

} // namespace

Error::~Error() = default;

int Error::Code() const {
    return m_codes.empty() ? GC_ERR_SUCCESS : m_codes.back();
}

std::string Error::Message() const {
    return m_messages.empty() ? std::string() : m_messages.back();
}

std::string Error::CodeName() const {
    return GetErrCodeName(Code());
}

std::string Error::CodeDefaultMessage() const {
    return GetErrCodeName(Code());
}

int Error::PopError(int& code, std::string& name, std::string& text) {
    if (NumErrors() == 0) {
        return GC_ERR_NO_DATA;
    }
    code = m_codes.back();
    name = GetErrCodeName(code);
    text = m_messages.back();
    m_codes.pop_back();
    m_messages.pop_back();
    return GC_ERR_SUCCESS;
}

std::size_t Error::NumErrors() const {
    assert(m_codes.size() == m_messages.size() && "m_codes.size() == m_messages.size()");
    return m_codes.size();
}

Error Error::GenerateError(int code, const std::string& text) {
    Error e;
    return AppendError(e, code, text);
}

Error Error::GenerateError(int code) {
    return GenerateError(code, GetMessageFromCode(code));
}

Error Error::GenerateSuccess() {
    return GenerateError(GC_ERR_SUCCESS, "No Error");
}

Error& Error::AppendError(Error& e, int code, const std::string& text) {
    e.m_codes.push_back(code);
    e.m_messages.push_back(text);
    return e;
}

Error& Error::AppendError(Error& e, int code) {
    return AppendError(e, code, GetMessageFromCode(code));
}

std::string Error::GetErrCodeName(int code) {
    if (const CodeText* entry = Find(code)) {
        return entry->name;
    }
    return "::-::(" + std::to_string(code) + ")";
}

std::string Error::GetMessageFromCode(int code) {
    if (const CodeText* entry = Find(code)) {
        return entry->text;
    }
    return "Unknown error code";
}

ErrorCache* ErrorCache::m_pCache = nullptr;

namespace {
// Threads that fail at once after GCCloseLib would otherwise each make a
// cache, and all but one would be lost. Defined before the releaser below,
// so that it is destroyed after it.
boost::mutex g_cacheCreationMutex;

// A call after GCCloseLib (a second close, say) makes a new cache that no
// later GCCloseLib may free; release it when the library is unloaded.
struct ReleaseCacheAtUnload {
    ~ReleaseCacheAtUnload() { ErrorCache::ReleaseErrorCache(); }
} g_releaseCacheAtUnload;
} // namespace

ErrorCache::~ErrorCache() = default;

ErrorCache* ErrorCache::GetErrorCache() {
    boost::mutex::scoped_lock lock(g_cacheCreationMutex);
    if (m_pCache == nullptr) {
        m_pCache = new ErrorCache();
    }
    return m_pCache;
}

void ErrorCache::ReleaseErrorCache() {
    boost::mutex::scoped_lock lock(g_cacheCreationMutex);
    delete m_pCache;
    m_pCache = nullptr;
}

int ErrorCache::Count() {
    boost::mutex::scoped_lock lock(m_mutex);
    return m_errors.count(std::this_thread::get_id()) ? 1 : 0;
}

void ErrorCache::OverwriteCachedErrorWith(Error e) {
    boost::mutex::scoped_lock lock(m_mutex);
    const auto id = std::this_thread::get_id();
    m_errors.erase(id);
    m_errors.emplace(id, std::move(e));
}

int ErrorCache::Pop(Error& e) {
    if (Count() != 1) {
        return GC_ERR_NO_DATA;
    }
    boost::mutex::scoped_lock lock(m_mutex);
    const auto id = std::this_thread::get_id();
    e = m_errors.at(id);
    m_errors.erase(id);
    return GC_ERR_SUCCESS;
}

int ErrorCache::Peak(Error& e) {
    if (Count() != 1) {
        return GC_ERR_NO_DATA;
    }
    boost::mutex::scoped_lock lock(m_mutex);
    e = m_errors.at(std::this_thread::get_id());
    return GC_ERR_SUCCESS;
}

void ErrorCache::Clear() {
    if (Count() != 1) {
        return;
    }
    boost::mutex::scoped_lock lock(m_mutex);
    m_errors.erase(std::this_thread::get_id());
}

bool ErrorCache::isIGNORABLEInStartOfErrorMSG(const std::string& text) {
    const std::size_t n = sizeof(kIgnorable) - 1;
    return text.size() >= n && text.compare(0, n, kIgnorable) == 0;
}

void CacheError(const Error& e) {
    ErrorCache::GetErrorCache()->OverwriteCachedErrorWith(e);
}

namespace detail {

int ReportErrorAt(int code, const std::string& text, const char* function, int line) {
    if (ErrorCache::isIGNORABLEInStartOfErrorMSG(text)) {
        return GC_ERR_SUCCESS;
    }
    CacheError(Error::GenerateError(code, Stamp(function, line) + text));
    return code;
}

int ChainErrorAt(int code, const char* function, int line) {
    const std::string stamped = Stamp(function, line) + Error::GetErrCodeName(code);
    ErrorCache* cache = ErrorCache::GetErrorCache();
    if (cache->Count() == 1) {
        Error e = Error::GenerateSuccess();
        cache->Pop(e);
        Error::AppendError(e, code, stamped);
        cache->OverwriteCachedErrorWith(e);
    } else {
        cache->OverwriteCachedErrorWith(Error::GenerateError(code, stamped));
    }
    return code;
}

int ChainErrorTextAt(int code, const std::string& text, const char* function, int line) {
    ErrorCache* cache = ErrorCache::GetErrorCache();
    if (cache->Count() != 1) {
        return ReportErrorAt(code, text, function, line);
    }
    Error e = Error::GenerateSuccess();
    cache->Pop(e);
    Error::AppendError(e, code, Stamp(function, line) + text);
    cache->OverwriteCachedErrorWith(e);
    return code;
}

int ReportBareError(int code) {
    const Error e = Error::GenerateError(code);
    CacheError(e);
    return e.Code();
}

} // namespace detail

} // namespace GenTL
