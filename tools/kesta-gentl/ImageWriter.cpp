#include "ImageWriter.h"

#include <png.h>

#include <cctype>
#include <csetjmp>
#include <cstdio>
#include <memory>
#include <vector>

namespace kesta::gentl {

namespace {

constexpr std::uint64_t kMono8 = 0x01080001;
constexpr std::uint64_t kMono10 = 0x01100003;
constexpr std::uint64_t kMono12 = 0x01100005;
constexpr std::uint64_t kMono16 = 0x01100007;
constexpr std::uint64_t kRgb8 = 0x02180014;
constexpr std::uint64_t kBgr8 = 0x02180015;

struct Layout {
    int channels = 0;       ///< 1 grey, 3 colour
    int bytesPerSample = 0; ///< 1 or 2
    unsigned maxValue = 0;  ///< largest sample value
    bool bgr = false;
};

bool LayoutOf(std::uint64_t format, Layout& layout) {
    switch (format) {
    case kMono8:
        layout = {1, 1, 255, false};
        return true;
    case kMono10:
        layout = {1, 2, 1023, false};
        return true;
    case kMono12:
        layout = {1, 2, 4095, false};
        return true;
    case kMono16:
        layout = {1, 2, 65535, false};
        return true;
    case kRgb8:
        layout = {3, 1, 255, false};
        return true;
    case kBgr8:
        layout = {3, 1, 255, true};
        return true;
    default:
        return false;
    }
}

std::string Extension(const std::string& path) {
    const auto dot = path.rfind('.');
    if (dot == std::string::npos || path.find('/', dot) != std::string::npos) {
        return "";
    }
    std::string ext = path.substr(dot + 1);
    for (char& c : ext) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return ext;
}

/// One line as the file wants it: samples big-endian, RGB order.
void FileLine(const std::uint8_t* in, std::uint32_t width, const Layout& l, std::uint8_t* out) {
    const std::size_t samples = static_cast<std::size_t>(width) * l.channels;
    if (l.bytesPerSample == 2) {
        for (std::size_t s = 0; s < samples; ++s) { // the camera's pixels are little-endian
            out[2 * s] = in[2 * s + 1];
            out[2 * s + 1] = in[2 * s];
        }
        return;
    }
    for (std::size_t p = 0; p < width; ++p) {
        for (int c = 0; c < l.channels; ++c) {
            const int from = l.bgr ? l.channels - 1 - c : c;
            out[p * l.channels + c] = in[p * l.channels + from];
        }
    }
}

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};

bool WriteNetpbm(std::FILE* file, const ImageView& image, const Layout& l, std::size_t lineBytes) {
    std::fprintf(file, "P%d\n%u %u\n%u\n", l.channels == 1 ? 5 : 6, image.width, image.height,
                 l.maxValue);
    std::vector<std::uint8_t> line(lineBytes);
    for (std::uint32_t y = 0; y < image.height; ++y) {
        FileLine(image.data + y * lineBytes, image.width, l, line.data());
        if (std::fwrite(line.data(), 1, line.size(), file) != line.size()) {
            return false;
        }
    }
    return true;
}

bool WritePng(std::FILE* file, const ImageView& image, const Layout& l, std::size_t lineBytes,
              std::string& error) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (info == nullptr) {
        png_destroy_write_struct(&png, nullptr);
        error = "libpng cannot start";
        return false;
    }
    std::vector<std::uint8_t> line(lineBytes);
    // libpng reports failures by longjmp; nothing with a destructor is made
    // between here and the end of the writing.
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        error = "libpng failed while writing";
        return false;
    }
    png_init_io(png, file);
    png_set_IHDR(png, info, image.width, image.height, 8 * l.bytesPerSample,
                 l.channels == 1 ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (l.bytesPerSample == 2 && l.maxValue != 65535) {
        // Tell viewers how many bits are significant (10 or 12 of 16).
        png_color_8 bits{};
        bits.gray = static_cast<png_byte>(l.maxValue == 1023 ? 10 : 12);
        png_set_sBIT(png, info, &bits);
    }
    png_write_info(png, info);
    for (std::uint32_t y = 0; y < image.height; ++y) {
        FileLine(image.data + y * lineBytes, image.width, l, line.data());
        png_write_row(png, line.data());
    }
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return true;
}

} // namespace

bool ImageWriter::Supports(std::uint64_t pixelFormat) {
    Layout l;
    return LayoutOf(pixelFormat, l);
}

std::size_t ImageWriter::ImageBytes(std::uint32_t width, std::uint32_t height,
                                    std::uint64_t pixelFormat) {
    Layout l;
    if (!LayoutOf(pixelFormat, l)) {
        return 0;
    }
    return static_cast<std::size_t>(width) * height * l.channels * l.bytesPerSample;
}

bool ImageWriter::Write(const std::string& path, const ImageView& image, std::string& error) {
    Layout l;
    if (!LayoutOf(image.pixelFormat, l)) {
        char code[16];
        std::snprintf(code, sizeof code, "0x%08llX",
                      static_cast<unsigned long long>(image.pixelFormat));
        error = std::string("pixel format ") + code + " cannot be saved as a picture";
        return false;
    }
    if (image.width == 0 || image.height == 0 || image.data == nullptr) {
        error = "an empty image";
        return false;
    }
    const std::size_t lineBytes =
        static_cast<std::size_t>(image.width) * l.channels * l.bytesPerSample;
    if (image.size / lineBytes < image.height) {
        error = "the buffer holds " + std::to_string(image.size) + " bytes, the image needs " +
                std::to_string(lineBytes * image.height);
        return false;
    }
    const std::string ext = Extension(path);
    const bool png = ext == "png";
    if (!png && ext != "pgm" && ext != "ppm") {
        error = "the picture's name must end in .png, .pgm or .ppm: " + path;
        return false;
    }
    if (!png && (ext == "pgm") != (l.channels == 1)) {
        error = std::string("a ") + (l.channels == 1 ? "grey" : "colour") + " image goes into ." +
                (l.channels == 1 ? "pgm" : "ppm") + ", not ." + ext;
        return false;
    }
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "wb"));
    if (!file) {
        error = "cannot write " + path;
        return false;
    }
    const bool ok = png ? WritePng(file.get(), image, l, lineBytes, error)
                        : WriteNetpbm(file.get(), image, l, lineBytes);
    if (std::fclose(file.release()) != 0 || !ok) {
        if (error.empty()) {
            error = "cannot write " + path;
        }
        return false;
    }
    return true;
}

} // namespace kesta::gentl
