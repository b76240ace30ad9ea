#include "stream/IHALGvsp.h"

#include <string>

#include "GenTL_KESTA.h"
#include "api/Error.h"
#include "api/HLogger.h"
#include "api/localization.h"
#include "hal/IHALGev.h"
#include "stream/IHALGvspUDP.h"

namespace GenTL {

namespace {

void LogConfigFailure(int rc) {
    // The capability register's address stands in this line for the
    // configuration word's as well.
    HLogger::Error(loc::al("GenTL::HALGvsp::ConfigureExtendedId ReadReg sk_addrGvspCofig = {0}",
                           std::to_string(sk_addrGvspCaps).c_str())
                       .c_str(),
                   rc);
}

} // namespace

int ConfigureExtendedIdHelper(IHALGev* hal, void* device, bool legacyRequested, bool& extendedId,
                              std::uint32_t& gevVersion, GvspCapabilities& capabilities) {
    if (hal == nullptr) {
        return ReportError(GC_ERR_INVALID_HANDLE, "hal==nullptr");
    }
    if (gevVersion == 0) {
        unsigned value = 0;
        if (const int rc = hal->ReadReg(device, sk_addrGevVersion, value)) {
            HLogger::Error(
                loc::al("GenTL::HALGvsp::ConfigureExtendedId ReadReg m_gevVersion = {0} with err",
                        std::to_string(sk_addrGevVersion).c_str())
                    .c_str(),
                rc);
            return ChainError(rc);
        }
        gevVersion = value;
    }
    if (capabilities.word == 0) {
        unsigned value = 0;
        if (const int rc = hal->ReadReg(device, sk_addrGvspCaps, value)) {
            HLogger::Error(
                loc::al(
                    "GenTL::HALGvsp::ConfigureExtendedId ReadReg sk_addrGvspCaps = {0} with err",
                    std::to_string(sk_addrGvspCaps).c_str())
                    .c_str(),
                rc);
            return ChainError(rc);
        }
        capabilities.word = value;
    }

    const unsigned major = gevVersion >> 16;
    const bool capable = capabilities.CanExtendedId();
    if (major <= 1) {
        extendedId = false;
        if (!capable) {
            return GC_ERR_SUCCESS;
        }
    } else if (capable && legacyRequested) {
        extendedId = false;
    } else {
        extendedId = true;
        if (!capable) {
            return GC_ERR_SUCCESS;
        }
    }

    // A capable camera always gets the bit; what it reads back decides, also
    // over a request for legacy ids.
    unsigned config = 0;
    if (const int rc = hal->ReadReg(device, sk_addrGvspCofig, config)) {
        LogConfigFailure(rc);
        return ChainError(rc);
    }
    extendedId = (config & sk_gvspConfigExtendedId) != 0;
    if (extendedId) {
        return GC_ERR_SUCCESS;
    }
    config |= sk_gvspConfigExtendedId;
    if (const int rc = hal->WriteReg(device, sk_addrGvspCofig, config)) {
        LogConfigFailure(rc);
        return ChainError(rc);
    }
    if (const int rc = hal->ReadReg(device, sk_addrGvspCofig, config)) {
        LogConfigFailure(rc);
        return ChainError(rc);
    }
    extendedId = (config & sk_gvspConfigExtendedId) != 0;
    return GC_ERR_SUCCESS;
}

} // namespace GenTL

namespace GenTL {

int IHALGvspUDP::GetNextPackets(GvspDatagram* datagrams, int count, int& got,
                                unsigned long timeout) {
    got = 0;
    if (count < 1) {
        return GC_ERR_SUCCESS;
    }
    GvspDatagram& d = datagrams[0];
    int head = 0;
    int body = 0;
    const int rc = GetNextPacket(d.head, d.headLength, head, d.body, d.bodyLength, body, timeout);
    if (rc != GC_ERR_SUCCESS && rc != GC_ERR_BUFFER_TOO_SMALL) {
        return rc;
    }
    d.data = nullptr;
    d.length = head + body;
    d.truncated = rc == GC_ERR_BUFFER_TOO_SMALL;
    got = 1;
    return GC_ERR_SUCCESS;
}

} // namespace GenTL
