#include "ProgressLine.h"

#include <cstdio>

namespace kesta::gentl {

std::string ProgressLine::Format(const GrabCounters& now, const GrabCounters& before) {
    const double span = now.seconds - before.seconds;
    const double fps = span > 0 ? static_cast<double>(now.frames - before.frames) / span : 0.0;
    const double mbps = span > 0 ? static_cast<double>(now.bytes - before.bytes) / span / 1e6 : 0.0;
    char text[256];
    std::snprintf(text, sizeof text,
                  "%7.1f s  frames %llu  %.1f fps  %.1f MB/s  incomplete %llu  missed %llu  "
                  "lost packets %llu  underrun %llu  resend %s",
                  now.seconds, static_cast<unsigned long long>(now.frames), fps, mbps,
                  static_cast<unsigned long long>(now.incomplete),
                  static_cast<unsigned long long>(now.missed),
                  static_cast<unsigned long long>(now.missedPackets),
                  static_cast<unsigned long long>(now.underrun), now.resend ? "on" : "off");
    return text;
}

void ProgressLine::Update(const GrabCounters& now) {
    const std::string line = Format(now, m_previous);
    m_previous = now;
    if (!m_live) {
        m_out << line << "\n";
        return;
    }
    // Blank out what a longer previous line left behind.
    m_out << "\r" << line;
    if (line.size() < m_width) {
        m_out << std::string(m_width - line.size(), ' ');
    }
    m_width = line.size();
    m_out.flush();
}

void ProgressLine::Finish() {
    if (m_live && m_width != 0) {
        m_out << "\n";
        m_width = 0;
    }
}

} // namespace kesta::gentl
