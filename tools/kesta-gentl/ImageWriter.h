#pragma once
// Saves one image as a picture: PNG (libpng) or PGM/PPM, chosen by the
// file's extension. Mono8, Mono10/12/16 (in 16-bit little-endian pixels) and
// RGB8/BGR8 are written; other pixel formats are refused with their code.
#include <cstddef>
#include <cstdint>
#include <string>

namespace kesta::gentl {

/// An image as a buffer holds it: lines without padding.
struct ImageView {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint64_t pixelFormat = 0; ///< the 32-bit code the camera sends
    const std::uint8_t* data = nullptr;
    std::size_t size = 0; ///< bytes at data
};

class ImageWriter {
public:
    /// True if the pixel format can be saved.
    static bool Supports(std::uint64_t pixelFormat);
    /// Bytes of one image of that format, 0 for an unsupported format.
    static std::size_t ImageBytes(std::uint32_t width, std::uint32_t height,
                                  std::uint64_t pixelFormat);
    /// Writes path: ".png" as PNG, ".pgm" or ".ppm" as netpbm (grey images
    /// as P5, colour as P6). False with the reason in error.
    static bool Write(const std::string& path, const ImageView& image, std::string& error);
};

} // namespace kesta::gentl
