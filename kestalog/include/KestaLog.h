#pragma once
/**
 * KestaLog: the platform's log library, libkestalog.so.0.
 *
 * A client makes one IKestaLog per log stream with KestaLog::Init(), tells it
 * where records go (SetOutPort), which ports it listens on (AddInPort) and
 * which records to keep (SetFilter), then hands it one JSON text per record
 * with SendMessage(). KestaLog::Deinit() ends the instance.
 *
 * This build is a small stand-in for the closed library: each record that
 * passes the filter is sent as one UDP datagram to 127.0.0.1 at the out-port,
 * so that a listener such as kesta-log-listen can show the log live.
 */
#include <cstdint>

/// Decides which records a log instance keeps.
class IFilterOutFn {
public:
    /// Called with each record's JSON text on the sending thread; true keeps
    /// the record, false drops it. An exception passes through SendMessage().
    virtual bool OnFilterOut(const char* json) = 0;
    virtual ~IFilterOutFn() = default;
};

/// One log stream. Made by KestaLog::Init(), ended by KestaLog::Deinit();
/// never deleted directly.
class IKestaLog {
public:
    /// Sets the port that records go to; replaces an earlier one.
    virtual void SetOutPort(uint16_t port) = 0;
    /// Undoes SetOutPort() for that port; records are then dropped.
    virtual void RemoveOutPort(uint16_t port) = 0;
    /// Registers a port on which the stream accepts input. Kept only.
    virtual void AddInPort(uint16_t port) = 0;
    /// Delivers one record, a JSON text, if the filter keeps it. Thread-safe.
    virtual void SendMessage(const char* json) = 0;
    /// Sets the filter; null keeps every record. Not owned.
    virtual void SetFilter(IFilterOutFn* filter) = 0;

protected:
    ~IKestaLog() = default;
};

namespace KestaLog {
/// A new log stream with no out-port and no filter.
IKestaLog* Init();
/// Ends a stream that Init() returned; null is ignored.
void Deinit(IKestaLog* log);
} // namespace KestaLog
