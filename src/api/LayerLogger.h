#pragma once
/**
 * LayerLogger: the design that GLogger and HLogger share.
 *
 * Each layer of the library logs through its own class so that the layers can
 * have separate ports and levels in kesta_log.conf. The classes differ only in
 * their names; LayerLogger<Layer> holds the code, and Layer (the derived
 * class) supplies:
 *   - kModule, kOutPortKey, kLevelKey: the record's "module" and the keys
 *     under "ports" and "levels" in the configuration;
 *   - Connection(): the layer's own log library instance pointer, null while
 *     logging is off, and SendMutex(): the lock around sends.
 *
 * The logging members are static and use only the layer's connection, so any
 * code can log with nothing in hand. The connection is made by constructing
 * the layer's logger object (GCInitLib does that) and ended by deleting it.
 * With logging off every call still builds its record and then drops it.
 */
#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>

#include <boost/thread/lock_guard.hpp>
#include <boost/thread/mutex.hpp>
#include <nlohmann/json.hpp>

#include "KestaLog.h"

namespace GenTL {

/// Level numbers as they stand in a record; lower is more severe.
enum LogLevel : int32_t {
    LOG_FATAL = 100,
    LOG_ERROR = 200,
    LOG_WARN = 300,
    LOG_INFO = 400,
    LOG_DEBUG = 500,
    LOG_VERBOSE = 600,
};

namespace detail {

/// The two entry points of the log library. Tests may replace them with
/// SetLogLibrary() to observe records without a network; the default is
/// KestaLog::Init and KestaLog::Deinit.
struct LogLibrary {
    IKestaLog* (*init)();
    void (*deinit)(IKestaLog*);
};
/// Installs lib for loggers constructed afterwards and returns the former one.
LogLibrary SetLogLibrary(LogLibrary lib);
/// The log library loggers connect to now.
LogLibrary CurrentLogLibrary();

/// kesta_log.conf of the working directory as one JSON value: null when the
/// file cannot be opened; line breaks are dropped before parsing. A malformed
/// file throws the parser's exception.
nlohmann::json ReadLogConfig();
/// An integer as it stands, a floating-point number truncated; any other type
/// (or a number that fits no 32-bit level) throws std::logic_error.
int32_t ReadLevel(const nlohmann::json& value);
/// A port number as a 16-bit value; non-numbers throw std::logic_error.
uint16_t ReadPort(const nlohmann::json& value);
/// Milliseconds since the epoch of the system clock, in decimal.
std::string TimestampNow();
/// text, or std::logic_error for null, as the string library would do.
const char* CheckedText(const char* text);

} // namespace detail

template <class Layer> class LayerLogger : public IFilterOutFn {
public:
    /// Three forms per level: with a user id, without one (empty "userid"),
    /// and with a number appended as "<message>: <value>".
    static void Fatal(const char* userId, const char* message) { Emit(LOG_FATAL, userId, message); }
    static void Fatal(const char* message) { Fatal("", message); }
    static void Fatal(const char* message, int value) { Fatal(WithValue(message, value).c_str()); }
    static void Error(const char* userId, const char* message) { Emit(LOG_ERROR, userId, message); }
    static void Error(const char* message) { Error("", message); }
    static void Error(const char* message, int value) { Error(WithValue(message, value).c_str()); }
    static void Warn(const char* userId, const char* message) { Emit(LOG_WARN, userId, message); }
    static void Warn(const char* message) { Warn("", message); }
    static void Warn(const char* message, int value) { Warn(WithValue(message, value).c_str()); }
    static void Info(const char* userId, const char* message) { Emit(LOG_INFO, userId, message); }
    static void Info(const char* message) { Info("", message); }
    static void Info(const char* message, int value) { Info(WithValue(message, value).c_str()); }
    static void Debug(const char* userId, const char* message) { Emit(LOG_DEBUG, userId, message); }
    static void Debug(const char* message) { Debug("", message); }
    static void Debug(const char* message, int value) { Debug(WithValue(message, value).c_str()); }
    static void Verbose(const char* userId, const char* message) {
        Emit(LOG_VERBOSE, userId, message);
    }
    static void Verbose(const char* message) { Verbose("", message); }
    static void Verbose(const char* message, int value) {
        Verbose(WithValue(message, value).c_str());
    }

    /// Stamps "module" and "timestamp" into record and sends it.
    static bool Log(nlohmann::json record) {
        record["module"] = Layer::kModule;
        record["timestamp"] = detail::TimestampNow();
        return SendLog(record);
    }

    /// Hands the compact text of record to the log library; false, and the
    /// record is dropped, while logging is off.
    static bool SendLog(nlohmann::json record) {
        // Texts from the wire may hold bytes that are not UTF-8; a log line
        // must not throw for that.
        const std::string text =
            record.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
        boost::lock_guard<boost::mutex> lock(Layer::SendMutex());
        IKestaLog* log = Layer::Connection();
        if (log == nullptr) {
            return false;
        }
        log->SendMessage(text.c_str());
        return true;
    }

    /// The log library's filter: true (keep) when this logger's level is at
    /// or above the record's "level". A record without a numeric level
    /// throws std::logic_error, a text that is no JSON the parser's error.
    bool OnFilterOut(const char* text) override {
        nlohmann::json record = nlohmann::json::parse(detail::CheckedText(text));
        return m_level >= detail::ReadLevel(record["level"]);
    }

    /// Ends the connection, if there is one.
    ~LayerLogger() override {
        boost::lock_guard<boost::mutex> lock(Layer::SendMutex());
        IKestaLog*& log = Layer::Connection();
        if (log != nullptr) {
            log->RemoveOutPort(m_port);
            detail::CurrentLogLibrary().deinit(log);
            log = nullptr;
        }
    }

    LayerLogger(const LayerLogger&) = delete;
    LayerLogger& operator=(const LayerLogger&) = delete;

    /// Out-port from the configuration; 0 until read.
    uint16_t Port() const { return m_port; }
    /// Highest level that passes the filter; 400 unless configured.
    int32_t Level() const { return m_level; }
    /// Whether the layer's logging is on.
    static bool IsOn() {
        boost::lock_guard<boost::mutex> lock(Layer::SendMutex());
        return Layer::Connection() != nullptr;
    }

protected:
    /// Connects the layer as kesta_log.conf says. Every failure (no file,
    /// malformed JSON, missing key, wrong type) leaves logging off for this
    /// layer; nothing is thrown or reported.
    LayerLogger() {
        IKestaLog*& log = Layer::Connection();
        try {
            nlohmann::json config = detail::ReadLogConfig();
            {
                boost::lock_guard<boost::mutex> lock(Layer::SendMutex());
                log = detail::CurrentLogLibrary().init();
            }
            // Indexing a null configuration makes an object of it; the
            // missing port then fails to convert like any other gap.
            m_port = detail::ReadPort(config["ports"][Layer::kOutPortKey]);
            m_level = detail::ReadLevel(config["levels"][Layer::kLevelKey]);
            log->SetOutPort(m_port);
            log->AddInPort(detail::ReadPort(config["ports"]["tarva_in"]));
            log->AddInPort(detail::ReadPort(config["ports"]["qv_in"]));
            log->SetFilter(this);
        } catch (...) {
            boost::lock_guard<boost::mutex> lock(Layer::SendMutex());
            if (log != nullptr) {
                detail::CurrentLogLibrary().deinit(log);
                log = nullptr;
            }
        }
    }

private:
    static void Emit(int32_t level, const char* userId, const char* message) {
        nlohmann::json record;
        record["level"] = level;
        record["message"] = detail::CheckedText(message);
        record["userid"] = detail::CheckedText(userId);
        Log(record);
    }

    static std::string WithValue(const char* message, int value) {
        return std::string(detail::CheckedText(message)) + ": " + std::to_string(value);
    }

    uint16_t m_port = 0;
    int32_t m_level = LOG_INFO;
};

} // namespace GenTL
