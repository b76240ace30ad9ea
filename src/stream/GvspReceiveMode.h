#pragma once
/**
 * GvspReceiveMode: how a UDP stream takes its datagrams from the kernel.
 *
 *   single  one datagram per system call (recv, or a scatter read);
 *   batch   many datagrams per system call (recvmmsg), the no-copy loop's
 *           payloads still written by the kernel straight into their
 *           predicted places in the image buffer;
 *   ring    a memory-mapped packet ring (AF_PACKET, TPACKET_V3) that the
 *           kernel fills beside the stream socket, filtered to the camera's
 *           address and the stream's port; each payload is copied once, from
 *           the ring into the buffer. Needs CAP_NET_RAW.
 *
 * The automatic choice is the ring where the process may open one, else
 * batch. The key "gvsp.receiveMode" of KestaGentl.cfg forces a mode
 * ("auto", "single", "batch" or "ring"). The environment variable
 * KESTA_GVSP_RECEIVE_MODE, with the same words, overrides the file: the
 * file is read once per process from the working directory, which tests and
 * benchmarks that run several modes side by side (in one process, or in
 * parallel from one build folder) cannot use.
 */
#include <istream>
#include <string>

namespace GenTL {

enum class GvspReceiveMode { Auto, Single, Batch, Ring };

/// The word of a mode, as the settings and the log write it.
const char* ReceiveModeName(GvspReceiveMode mode);

/// The mode a word names (any case); false for other words.
bool ParseReceiveMode(const std::string& word, GvspReceiveMode& mode);

/// "gvsp.receiveMode" in lines of the KestaGentl.cfg form (key and value
/// separated by white space); Auto when the key is absent or its value bad
/// (a bad value is logged).
GvspReceiveMode ReceiveModeFromSettings(std::istream& in);

/**
 * The mode asked for: the environment variable, else KestaGentl.cfg (read
 * at the first call in the process), else Auto. `origin` tells where it
 * came from, for the log.
 */
GvspReceiveMode RequestedReceiveMode(std::string& origin);

} // namespace GenTL
