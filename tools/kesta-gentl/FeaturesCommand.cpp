#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "Commands.h"
#include "FeatureListing.h"
#include "NodeMap.h"
#include "Options.h"
#include "Session.h"

namespace kesta::gentl {

namespace {

const char* const kModules[] = {"system", "interface", "device", "stream", "remote"};

/// Stream 0 of an open camera, closed with the object.
class StreamPort {
public:
    explicit StreamPort(Session& session) : m_session(session) {}
    ~StreamPort() {
        if (m_stream != nullptr) {
            if (GC_ERROR rc = m_session.Library().DSClose(m_stream)) {
                m_session.Fail("DSClose", rc);
            }
        }
    }
    StreamPort(const StreamPort&) = delete;
    StreamPort& operator=(const StreamPort&) = delete;

    GC_ERROR Open(DEV_HANDLE device) {
        Producer& p = m_session.Library();
        size_t size = 0;
        GC_ERROR rc = p.DevGetDataStreamID(device, 0, nullptr, &size);
        std::string id(size, '\0');
        if (rc == GC_ERR_SUCCESS) {
            rc = p.DevGetDataStreamID(device, 0, &id[0], &size);
        }
        if (rc == GC_ERR_SUCCESS) {
            rc = p.DevOpenDataStream(device, id.c_str(), &m_stream);
        }
        if (rc != GC_ERR_SUCCESS) {
            m_stream = nullptr;
            m_session.Fail("opening the camera's first stream", rc);
        }
        return rc;
    }
    DS_HANDLE Handle() const { return m_stream; }

private:
    Session& m_session;
    DS_HANDLE m_stream = nullptr;
};

/// The interface of the camera that selector names, or the first one that
/// found a camera, or the first one.
const Session::Interface* PickInterface(Session& session, const std::string& selector) {
    const auto& interfaces = session.Interfaces();
    if (interfaces.empty()) {
        std::cerr << "no network interface\n";
        return nullptr;
    }
    if (!selector.empty() || !session.Cameras().empty()) {
        const Session::Camera* camera = session.Find(selector);
        return camera == nullptr ? nullptr : &interfaces.at(camera->iface);
    }
    return &interfaces.front();
}

} // namespace

int RunFeatures(Producer& producer, const Arguments& arguments) {
    Options options;
    if (!options.Parse(arguments, {"--module", "--device", "--access", "--timeout", "--set"},
                       std::cerr)) {
        return 2;
    }
    std::vector<std::pair<std::string, std::string>> assignments;
    if (!ParseAssignments(options.Get("--set"), assignments)) {
        std::cerr << "--set takes NAME=VALUE[,NAME=VALUE...], not " << options.Get("--set") << "\n";
        return 2;
    }
    const std::string module = options.Get("--module", "system");
    bool known = false;
    for (const char* m : kModules) {
        known = known || module == m;
    }
    DEVICE_ACCESS_FLAGS access = DEVICE_ACCESS_CONTROL;
    if (!known || !options.Rest().empty()) {
        std::cerr << "features takes --module system|interface|device|stream|remote, "
                     "--device SERIAL|INDEX, --set NAME=VALUE[,...], --access and --timeout MS\n";
        return 2;
    }
    if (!ParseAccess(options.Get("--access", "control"), access, std::cerr)) {
        return 2;
    }

    Session session(producer);
    if (session.Start()) {
        return 1;
    }
    StreamPort stream(session);
    PORT_HANDLE port = session.System();
    if (module != "system") {
        session.Discover(options.Timeout());
    }
    if (module == "interface") {
        const Session::Interface* iface = PickInterface(session, options.Get("--device"));
        if (iface == nullptr) {
            return 1;
        }
        port = iface->handle;
    } else if (module != "system") {
        const Session::Camera* camera = session.Find(options.Get("--device"));
        DEV_HANDLE device = nullptr;
        if (camera == nullptr || session.OpenDevice(*camera, access, &device)) {
            return 1;
        }
        port = device;
        if (module == "remote") {
            if (GC_ERROR rc = producer.DevGetPort(device, &port)) {
                return session.Fail("DevGetPort", rc);
            }
        } else if (module == "stream") {
            if (stream.Open(device)) {
                return 1;
            }
            port = stream.Handle();
        }
    }

    NodeMap features(producer, port);
    if (!features.Load()) {
        return 1;
    }
    for (const auto& [name, value] : assignments) {
        std::string error;
        if (!features.SetFromText(name, value, error)) {
            std::cerr << "cannot set " << name << " to " << value << ": " << error << "\n";
            return 1;
        }
    }
    std::cout << module << " module, " << features.Url() << "\n";
    return ListFeatures(features, std::cout) ? 0 : 1;
}

} // namespace kesta::gentl
