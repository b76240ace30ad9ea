#include "CameraXml.h"

#include <algorithm>
#include <cstdio>
#include <iostream>

namespace kesta::gentl {

namespace {

/// Bytes per GCReadPort while reading the XML (the producer splits further).
constexpr std::size_t kXmlPiece = 64 * 1024;

} // namespace

GC_ERROR ReadPortUrl(Producer& producer, PORT_HANDLE port, std::string& url) {
    size_t size = 0;
    GC_ERROR rc = producer.GCGetPortURL(port, nullptr, &size);
    std::vector<char> text(size + 1, '\0');
    if (rc == GC_ERR_SUCCESS) {
        rc = producer.GCGetPortURL(port, text.data(), &size);
    }
    if (rc != GC_ERR_SUCCESS) {
        producer.Report(std::cerr, "GCGetPortURL", rc);
        return rc;
    }
    url = text.data();
    return GC_ERR_SUCCESS;
}

bool ReadCameraXml(Producer& producer, PORT_HANDLE port, CameraXml& xml) {
    if (ReadPortUrl(producer, port, xml.url) != GC_ERR_SUCCESS) {
        return false;
    }
    if (!ParseLocalUrl(xml.url, xml.file)) {
        std::cerr << "the camera's description is not in its own memory: " << xml.url
                  << "\nfetch it from there yourself\n";
        return false;
    }
    xml.data.assign(xml.file.length, '\0');
    for (std::size_t done = 0; done < xml.data.size(); done += kXmlPiece) {
        size_t size = std::min(kXmlPiece, xml.data.size() - done);
        if (GC_ERROR rc =
                producer.GCReadPort(port, xml.file.address + done, xml.data.data() + done, &size)) {
            char at[24];
            std::snprintf(at, sizeof at, "0x%08llX",
                          static_cast<unsigned long long>(xml.file.address + done));
            producer.Report(std::cerr, std::string("GCReadPort(") + at + ") of the XML", rc);
            return false;
        }
    }
    return true;
}

} // namespace kesta::gentl
