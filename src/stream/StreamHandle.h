#pragma once
/**
 * StreamHandle: the receive side of one stream channel. The socket object
 * is made once by its layer and lives as long as the layer; the layer opens
 * and closes it as streams start and stop.
 */
#include <memory>

namespace GenTL {

class OverlappedSocket;

struct StreamHandle {
    std::shared_ptr<OverlappedSocket> m_pSocket;
};

} // namespace GenTL
