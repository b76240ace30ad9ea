#pragma once
// The live line of a grab: frames, rates over the last interval, and the
// stream's loss counters. On a terminal it is rewritten in place; into a
// file or pipe it becomes one line per update, so logs stay readable.
#include <cstdint>
#include <ostream>
#include <string>

namespace kesta::gentl {

/// What a grab has counted so far.
struct GrabCounters {
    double seconds = 0;              ///< since the first image was asked for
    std::uint64_t frames = 0;        ///< buffers delivered
    std::uint64_t bytes = 0;         ///< their filled bytes
    std::uint64_t incomplete = 0;    ///< delivered with parts missing
    std::uint64_t missed = 0;        ///< blocks that never came (the stream's count)
    std::uint64_t missedPackets = 0; ///< packets that never came
    std::uint64_t underrun = 0;      ///< blocks with no free buffer
    bool resend = false;             ///< packet resend on
};

class ProgressLine {
public:
    ProgressLine(std::ostream& out, bool live) : m_out(out), m_live(live) {}

    /// The line for `now`, with rates since `before` (the whole run when
    /// before is the zero record).
    static std::string Format(const GrabCounters& now, const GrabCounters& before);

    /// Shows the line; rates since the previous update.
    void Update(const GrabCounters& now);
    /// Ends the live line so that what follows starts on a line of its own.
    void Finish();

private:
    std::ostream& m_out;
    bool m_live;
    GrabCounters m_previous;
    std::size_t m_width = 0;
};

} // namespace kesta::gentl
