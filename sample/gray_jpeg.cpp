// ITU-T T.81, baseline sequential. The Huffman tables give each symbol a code of the same length, its rank in the
// list: larger files than the usual tables make, and no tables of numbers here.
#include "sample/gray_jpeg.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

namespace sample {
namespace {

using namespace test_support;

constexpr int kBlock = 8;
constexpr int kDcBits = 4;    // code length for the 12 sizes of a difference
constexpr int kAcBits = 8;    // code length for the 162 pairs of run and size
constexpr int kAcSizes = 10;  // 1 to 10 bits
constexpr int kRuns = 16;
constexpr int kEndOfBlock = kRuns * kAcSizes;  // ranks in the list of symbols
constexpr int kZeroRun = kEndOfBlock + 1;

// Positions of a block in the order of the zigzag, as row * 8 + column.
std::array<int, 64> zigzag() {
    std::array<int, 64> order{};
    size_t k = 0;
    for (int diagonal = 0; diagonal < 2 * kBlock - 1; ++diagonal) {
        for (int i = 0; i <= diagonal; ++i) {
            const int row = diagonal % 2 == 0 ? diagonal - i : i;
            const int column = diagonal - row;
            if (row < kBlock && column < kBlock) {
                order[k++] = row * kBlock + column;
            }
        }
    }
    return order;
}

int quantiser(int position, int quality) {
    return std::clamp(quality * (4 + position / kBlock + position % kBlock) / 4, 1, 255);
}

Bytes huffman_table(uint8_t id, int code_bits, const Bytes& symbols) {
    Bytes lengths(16, 0);
    lengths[static_cast<size_t>(code_bits - 1)] = static_cast<uint8_t>(symbols.size());
    return jpeg_segment(0xC4, Bytes{id} + lengths + symbols);
}

Bytes headers(const cv::Mat& picture, int quality) {
    Bytes quantisers{0};
    for (const int position : zigzag()) {
        quantisers.push_back(static_cast<uint8_t>(quantiser(position, quality)));
    }
    Bytes dc_symbols;
    for (int size = 0; size < 12; ++size) {
        dc_symbols.push_back(static_cast<uint8_t>(size));
    }
    Bytes ac_symbols;
    for (int run = 0; run < kRuns; ++run) {
        for (int size = 1; size <= kAcSizes; ++size) {
            ac_symbols.push_back(static_cast<uint8_t>(run << 4 | size));
        }
    }
    ac_symbols += Bytes{0x00, 0xF0};
    return join({jpeg_start(), jpeg_segment(0xDB, quantisers),
                 jpeg_segment(0xC0, Bytes{8} + be16(static_cast<uint64_t>(picture.rows)) +
                                        be16(static_cast<uint64_t>(picture.cols)) + Bytes{1, 1, 0x11, 0}),
                 huffman_table(0x00, kDcBits, dc_symbols), huffman_table(0x10, kAcBits, ac_symbols),
                 jpeg_segment(kSos, Bytes{1, 1, 0, 0, 63, 0})});
}

// The entropy-coded bits of a scan.
class Scan {
  public:
    explicit Scan(Bytes& out) : out_(out) {}

    void block(const std::array<int, 64>& coefficients) {
        value(coefficients[0] - previous_dc_, kDcBits, [](int size) { return size; });
        previous_dc_ = coefficients[0];
        int run = 0;
        for (size_t k = 1; k < coefficients.size(); ++k) {
            if (coefficients[k] == 0) {
                ++run;
                continue;
            }
            for (; run >= kRuns; run -= kRuns) {
                bits(kZeroRun, kAcBits);
            }
            value(coefficients[k], kAcBits, [run](int size) { return run * kAcSizes + size - 1; });
            run = 0;
        }
        if (run > 0) {
            bits(kEndOfBlock, kAcBits);
        }
    }

    // The last byte is filled up with ones.
    void finish() { bits(0x7F, 7); }

  private:
    template <typename CodeOfSize>
    void value(int number, int code_bits, CodeOfSize code_of_size) {
        int size = 0;
        while (std::abs(number) >> size != 0) {
            ++size;
        }
        bits(code_of_size(size), code_bits);
        bits(number > 0 ? number : number + (1 << size) - 1, size);
    }

    void bits(int number, int count) {
        for (int i = count - 1; i >= 0; --i) {
            byte_ = byte_ << 1 | (number >> i & 1);
            if (++filled_ == 8) {
                out_.push_back(static_cast<uint8_t>(byte_));
                if (byte_ == 0xFF) {
                    out_.push_back(0);
                }
                byte_ = filled_ = 0;
            }
        }
    }

    Bytes& out_;
    int previous_dc_ = 0;
    int byte_ = 0;
    int filled_ = 0;
};

}  // namespace

Bytes encode_gray_jpeg(const cv::Mat& picture, int quality) {
    Bytes file = headers(picture, quality);
    cv::Mat padded;
    cv::copyMakeBorder(picture, padded, 0, -picture.rows & (kBlock - 1), 0, -picture.cols & (kBlock - 1),
                       cv::BORDER_REPLICATE);
    padded.convertTo(padded, CV_32F, 1, -128);
    const std::array<int, 64> order = zigzag();
    Scan scan(file);
    cv::Mat frequencies;
    for (int y = 0; y < padded.rows; y += kBlock) {
        for (int x = 0; x < padded.cols; x += kBlock) {
            cv::dct(padded(cv::Rect(x, y, kBlock, kBlock)), frequencies);
            std::array<int, 64> coefficients{};
            for (size_t k = 0; k < order.size(); ++k) {
                const float frequency = frequencies.at<float>(order[k] / kBlock, order[k] % kBlock);
                coefficients[k] =
                    static_cast<int>(std::lround(frequency / static_cast<float>(quantiser(order[k], quality))));
            }
            scan.block(coefficients);
        }
    }
    scan.finish();
    return file + Bytes{0xFF, 0xD9};
}

}  // namespace sample
