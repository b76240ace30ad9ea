#include "modules/Persist.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "api/GLogger.h"
#include "registers/DeviceReg.h"

namespace GenTL {

namespace {

const char* const kStreamSelectorKey = "StreamSelector";

/// The kept number as the register takes it; false for a value that is no
/// number, or a floating-point one that no 64-bit register holds (its
/// conversion would be undefined).
bool ToRegisterValue(const nlohmann::ordered_json& value, std::uint64_t& out) {
    if (value.is_number_integer() || value.is_boolean()) {
        out = value.get<std::uint64_t>();
        return true;
    }
    if (value.is_number_float()) {
        const double d = value.get<double>();
        if (!(d > -1.0 && d < 18446744073709551616.0)) {
            return false;
        }
        out = static_cast<std::uint64_t>(d);
        return true;
    }
    return false;
}

/// Writes text to path by way of a temporary file renamed over it.
bool ReplaceFile(const std::string& path, const std::string& text) {
    std::string temporary = path + ".XXXXXX";
    const int fd = mkstemp(&temporary[0]);
    if (fd < 0) {
        return false;
    }
    struct stat old = {};
    const mode_t mode = stat(path.c_str(), &old) == 0 ? (old.st_mode & 07777) : 0644;
    bool written = fchmod(fd, mode) == 0;
    for (std::size_t done = 0; written && done < text.size();) {
        const ssize_t n = write(fd, text.data() + done, text.size() - done);
        written = n > 0;
        done += written ? static_cast<std::size_t>(n) : 0;
    }
    written = fsync(fd) == 0 && written;
    written = close(fd) == 0 && written;
    if (!written || std::rename(temporary.c_str(), path.c_str()) != 0) {
        std::remove(temporary.c_str());
        return false;
    }
    return true;
}

} // namespace

Persist* g_persist = nullptr;

Persist::Persist(const char* path) : m_config(nlohmann::ordered_json::object()), m_path(path) {
    std::ifstream in(m_path);
    if (!in.is_open()) {
        return;
    }
    std::string text;
    std::string line;
    while (std::getline(in, line)) {
        text += line;
    }
    auto parsed = nlohmann::ordered_json::parse(text, nullptr, false);
    // Anything but an object counts as empty: the keys of the cameras could
    // not be set in it.
    if (parsed.is_object()) {
        m_config = std::move(parsed);
    }
}

Persist::~Persist() {
    Write();
}

void Persist::Write() const {
    std::string text;
    {
        boost::lock_guard<boost::mutex> lock(m_mutex);
        // A serial number is the camera's bytes; ones that are no UTF-8 are
        // replaced rather than failing the whole file.
        text = m_config.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    }
    if (!ReplaceFile(m_path, text)) {
        GLogger::Warn("GenTL::Persist could not write the settings file");
    }
}

bool Persist::IsSaveable(unsigned long address) {
    return address == DeviceReg::kStreamSelectorAddress;
}

void Persist::UpdateConfig(const char* key, unsigned long address, const void* value) {
    if (!IsSaveable(address)) {
        return;
    }
    std::int64_t number = 0;
    std::memcpy(&number, value, sizeof number);
    boost::lock_guard<boost::mutex> lock(m_mutex);
    nlohmann::ordered_json& device = m_config[key];
    // A camera's member that is not an object (hand-edited) is replaced
    // rather than thrown at the consumer's register write.
    if (!device.is_object()) {
        device = nlohmann::ordered_json::object();
    }
    device[kStreamSelectorKey] = number;
}

void Persist::ConfigureDevice(const char* key, DeviceReg* reg) {
    nlohmann::ordered_json device;
    {
        boost::lock_guard<boost::mutex> lock(m_mutex);
        const auto it = m_config.find(key);
        if (it == m_config.end() || !it->is_object()) {
            return;
        }
        device = *it;
    }
    for (const auto& item : device.items()) {
        if (item.key() != kStreamSelectorKey) {
            continue;
        }
        std::uint64_t value = 0;
        if (!ToRegisterValue(item.value(), value)) {
            // Opening the camera goes on with the default.
            GLogger::Warn("GenTL::Persist::ConfigureDevice StreamSelector is not a number");
            continue;
        }
        unsigned long size = 0;
        reg->GetStreamSelector_Reg(nullptr, &size);
        reg->SetStreamSelector_Reg(&value, &size);
    }
}

} // namespace GenTL
