#pragma once
/**
 * Collecting the answers to a discovery.
 *
 * A discovery ack is taken as it comes: neither status, ack code, id nor
 * length is tested, and a device is whatever answers with a payload. The
 * device's id is the serial number text of the answer. Only the bytes that
 * arrived are read.
 */
#include <netinet/in.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "hal/AdapterHandle.h"
#include "hal/DeviceData.h"
#include "hal/IHALGev.h"

namespace GenTL {

/// Bytes taken from the socket per discovery answer: header and payload.
constexpr std::size_t kDiscoveryAckSize = gvcp::kHeaderSize + gvcp::kDiscoveryPayloadSize;

/// A device list row from the size bytes of one answer that arrived (fields
/// past them read as zeros).
DeviceData MakeDeviceData(const sockaddr_in& local, const std::uint8_t* datagram, std::size_t size,
                          bool unicastDiscovered);

/// The IP address in a row's payload, as it stands on the wire.
unsigned PayloadIp(const DeviceData& row);

/**
 * Receives answers on the adapter's socket (or its broadcastSocket) until
 * timeoutMs have passed or a receive fails, appending one row to the
 * adapter's device list and one entry to devices per answer, under the
 * device list lock. Run by two threads during a discovery.
 */
void ProcessDiscoveryAck(AdapterHandle* adapter, std::vector<DiscoveredDevice>& devices,
                         long timeoutMs, bool useBroadcastSocket);

/**
 * Sends command to each address of the adapter's unicast list in turn and
 * takes one answer from each within timeoutMs. Silent or unreachable
 * addresses are logged and passed over. Call with no collector running.
 */
int UnicastDiscovery(AdapterHandle* adapter, const std::uint8_t* command, std::size_t commandLength,
                     std::vector<DiscoveredDevice>& devices, long timeoutMs);

} // namespace GenTL
