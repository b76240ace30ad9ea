#pragma once
// What the calling thread's error cache holds, for in-process unit tests,
// and a fixture that starts each test with an empty cache.
#include <string>

#include <gtest/gtest.h>

#include "api/Error.h"

namespace kesta::test {

struct CachedError {
    int code = 0;
    std::string message;   ///< newest text, stamp included
    std::size_t count = 0; ///< lines on the stack

    static CachedError Take() {
        CachedError c;
        GenTL::Error e;
        if (GenTL::ErrorCache::GetErrorCache()->Peak(e) == 0) {
            c.code = e.Code();
            c.message = e.Message();
            c.count = e.NumErrors();
        }
        return c;
    }

    static void Clear() { GenTL::ErrorCache::GetErrorCache()->Clear(); }

    /// The message without its "<function>():<line>: " stamp.
    std::string Text() const {
        const std::string::size_type call = message.find("():");
        const std::string::size_type end =
            call == std::string::npos ? call : message.find(": ", call + 3);
        return end == std::string::npos ? message : message.substr(end + 2);
    }
    /// The newest text contains `part`.
    static bool Says(const std::string& part) {
        return Take().message.find(part) != std::string::npos;
    }
};

class ErrorCacheTest : public ::testing::Test {
protected:
    void SetUp() override { CachedError::Clear(); }
    void TearDown() override { GenTL::ErrorCache::ReleaseErrorCache(); }
};

} // namespace kesta::test
