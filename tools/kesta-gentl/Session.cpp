#include "Session.h"

#include <cctype>

namespace kesta::gentl {

namespace {

bool IsIndex(const std::string& text) {
    if (text.empty() || text.size() > 9) {
        return false;
    }
    for (char c : text) {
        if (!std::isdigit(static_cast<unsigned char>(c))) {
            return false;
        }
    }
    return true;
}

} // namespace

Session::Session(Producer& producer) : m_producer(producer) {}

Session::~Session() {
    CloseDevice();
    for (auto it = m_interfaces.rbegin(); it != m_interfaces.rend(); ++it) {
        if (GC_ERROR rc = m_producer.IFClose(it->handle)) {
            Fail("IFClose(" + it->id + ")", rc);
        }
    }
    if (m_system != nullptr) {
        if (GC_ERROR rc = m_producer.TLClose(m_system)) {
            Fail("TLClose", rc);
        }
    }
    if (m_initialized) {
        if (GC_ERROR rc = m_producer.GCCloseLib()) {
            m_producer.Report(std::cerr, "GCCloseLib", rc);
        }
    }
}

int Session::Fail(const std::string& what, GC_ERROR code) {
    m_producer.Report(std::cerr, what, code);
    return 1;
}

GC_ERROR Session::Start() {
    if (GC_ERROR rc = m_producer.GCInitLib()) {
        Fail("GCInitLib", rc);
        return rc;
    }
    m_initialized = true;
    if (GC_ERROR rc = m_producer.TLOpen(&m_system)) {
        m_system = nullptr;
        Fail("TLOpen", rc);
        return rc;
    }
    uint32_t count = 0;
    if (GC_ERROR rc = m_producer.TLGetNumInterfaces(m_system, &count)) {
        Fail("TLGetNumInterfaces", rc);
        return rc;
    }
    for (uint32_t i = 0; i < count; ++i) {
        size_t size = 0;
        GC_ERROR rc = m_producer.TLGetInterfaceID(m_system, i, nullptr, &size);
        std::string id(size, '\0');
        if (rc == GC_ERR_SUCCESS) {
            rc = m_producer.TLGetInterfaceID(m_system, i, &id[0], &size);
        }
        if (rc != GC_ERR_SUCCESS) {
            Fail("TLGetInterfaceID(" + std::to_string(i) + ")", rc);
            continue;
        }
        id = id.c_str();
        IF_HANDLE handle = nullptr;
        if ((rc = m_producer.TLOpenInterface(m_system, id.c_str(), &handle))) {
            Fail("TLOpenInterface(" + id + ")", rc);
            continue;
        }
        m_interfaces.push_back({id, handle});
    }
    return GC_ERR_SUCCESS;
}

GC_ERROR Session::Discover(std::uint64_t timeoutMs) {
    m_cameras.clear();
    GC_ERROR result = GC_ERR_SUCCESS;
    for (std::size_t i = 0; i < m_interfaces.size(); ++i) {
        const Interface& iface = m_interfaces[i];
        if (GC_ERROR rc = m_producer.IFUpdateDeviceList(iface.handle, nullptr, timeoutMs)) {
            Fail("IFUpdateDeviceList(" + iface.id + ")", rc);
            result = rc;
            continue;
        }
        uint32_t count = 0;
        if (GC_ERROR rc = m_producer.IFGetNumDevices(iface.handle, &count)) {
            Fail("IFGetNumDevices(" + iface.id + ")", rc);
            result = rc;
            continue;
        }
        for (uint32_t d = 0; d < count; ++d) {
            size_t size = 0;
            GC_ERROR rc = m_producer.IFGetDeviceID(iface.handle, d, nullptr, &size);
            std::string id(size, '\0');
            if (rc == GC_ERR_SUCCESS) {
                rc = m_producer.IFGetDeviceID(iface.handle, d, &id[0], &size);
            }
            if (rc != GC_ERR_SUCCESS) {
                Fail("IFGetDeviceID(" + std::to_string(d) + ")", rc);
                result = rc;
                continue;
            }
            m_cameras.push_back({i, id.c_str()});
        }
    }
    return result;
}

const Session::Camera* Session::Find(const std::string& selector) const {
    if (m_cameras.empty()) {
        std::cerr << "no camera found";
        if (m_interfaces.empty()) {
            std::cerr << " (no network interface)";
        }
        std::cerr << "\n";
        return nullptr;
    }
    if (selector.empty()) {
        return &m_cameras.front();
    }
    for (const Camera& camera : m_cameras) {
        if (camera.id == selector) {
            return &camera;
        }
    }
    if (IsIndex(selector)) {
        const std::size_t index = std::stoul(selector);
        if (index < m_cameras.size()) {
            return &m_cameras[index];
        }
    }
    std::cerr << "no camera " << selector << "; found:";
    for (std::size_t i = 0; i < m_cameras.size(); ++i) {
        std::cerr << " [" << i << "] " << m_cameras[i].id;
    }
    std::cerr << "\n";
    return nullptr;
}

GC_ERROR Session::OpenDevice(const Camera& camera, DEVICE_ACCESS_FLAGS flags, DEV_HANDLE* device) {
    CloseDevice();
    const Interface& iface = m_interfaces.at(camera.iface);
    if (GC_ERROR rc = m_producer.IFOpenDevice(iface.handle, camera.id.c_str(), flags, &m_device)) {
        m_device = nullptr;
        Fail("IFOpenDevice(" + camera.id + ")", rc);
        return rc;
    }
    *device = m_device;
    return GC_ERR_SUCCESS;
}

GC_ERROR Session::CloseDevice() {
    if (m_device == nullptr) {
        return GC_ERR_SUCCESS;
    }
    const GC_ERROR rc = m_producer.DevClose(m_device);
    m_device = nullptr;
    if (rc != GC_ERR_SUCCESS) {
        Fail("DevClose", rc);
    }
    return rc;
}

} // namespace kesta::gentl
