#pragma once
/**
 * Persist: the settings of device modules that survive a restart, kept per
 * camera in one JSON file of the working directory ("persist.json").
 *
 * GCInitLib makes the one instance, g_persist, which reads the file;
 * GCCloseLib deletes it, and the destructor writes the file. In between:
 *
 *   - DeviceGev::WritePort calls UpdateConfig before each register write;
 *     only StreamSelector_Reg (IsSaveable) is kept, keyed by the camera's
 *     serial number;
 *   - DeviceGev::Open calls ConfigureDevice, which writes what was kept for
 *     the camera into its register space.
 *
 * The file is a compact object, {"220500123":{"StreamSelector":0}}. It is
 * read with its line breaks removed, so a hand-edited file may have them.
 * A file that is missing, unreadable, not JSON, or not an object counts as
 * empty and is replaced at the end of the run. Members of a camera that
 * this version does not know stay as they are. The file is written whole
 * to a temporary file beside it and renamed over it, so that a failed
 * write leaves the old file intact; what cannot be written is lost without
 * a report. Applications sharing a working directory overwrite each other:
 * the last to close wins.
 */
#include <string>

#include <boost/thread/mutex.hpp>
#include <nlohmann/json.hpp>

namespace GenTL {

class DeviceReg;

class Persist {
public:
    /// Keeps path (relative to the working directory) and reads the file.
    explicit Persist(const char* path);
    /// Writes the file.
    ~Persist();

    Persist(const Persist&) = delete;
    Persist& operator=(const Persist&) = delete;

    /// True for the address of StreamSelector_Reg alone.
    static bool IsSaveable(unsigned long address);
    /**
     * Keeps the 64-bit value at value (8 readable bytes) as the setting at
     * address of the camera key; an address that IsSaveable refuses is
     * passed over.
     */
    void UpdateConfig(const char* key, unsigned long address, const void* value);
    /// Writes the settings kept for key into reg. A setting of a type that
    /// is no number is logged and passed over.
    void ConfigureDevice(const char* key, DeviceReg* reg);

private:
    void Write() const;

    nlohmann::ordered_json m_config;
    std::string m_path;
    mutable boost::mutex m_mutex;
};

/// Made by GCInitLib, deleted (and null) after GCCloseLib.
extern Persist* g_persist;

} // namespace GenTL
