#include "projection/sample_table.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "projection/large_pages.h"
#include "projection/parallel.h"
#include "projection/processor.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace {

// Fractions of a pixel that positions are rounded to; a weight is a product of two.
constexpr int kUnits = 32;
constexpr int kWeightBits = 10;
constexpr unsigned kRounding = 1U << (kWeightBits - 1);

uint8_t sampled(const uint8_t* upper_left, ptrdiff_t stride, unsigned fraction) {
    const unsigned right = fraction & 0xff;
    const unsigned below = fraction >> 8;
    const uint8_t* lower_left = upper_left + stride;
    const unsigned upper = upper_left[0] * (kUnits - right) + upper_left[1] * right;
    const unsigned lower = lower_left[0] * (kUnits - right) + lower_left[1] * right;
    return static_cast<uint8_t>((upper * (kUnits - below) + lower * below + kRounding) >> kWeightBits);
}

// A position in 32nds. What is outside, infinite or not a number goes to -2 pixels, where everything is zero.
int units_of(float position, int size) {
    const bool inside = position > -2.0f && position < static_cast<float>(size) + 1.0f;
    return inside ? static_cast<int>(std::lrint(position * kUnits)) : -2 * kUnits;
}

#if defined(__x86_64__)

// Two neighbours, the left one in the low byte.
int neighbours(const uint8_t* left) {
    uint16_t pair;
    std::memcpy(&pair, left, sizeof(pair));
    return pair;
}

// The neighbours of eight pixels; single loads, since gathers are slower on many processors.
__attribute__((target("avx2"))) inline __m256i load_neighbours(const uint8_t* row, const int32_t* offsets) {
    __m128i pairs = _mm_setzero_si128();
    pairs = _mm_insert_epi16(pairs, neighbours(row + offsets[0]), 0);
    pairs = _mm_insert_epi16(pairs, neighbours(row + offsets[1]), 1);
    pairs = _mm_insert_epi16(pairs, neighbours(row + offsets[2]), 2);
    pairs = _mm_insert_epi16(pairs, neighbours(row + offsets[3]), 3);
    pairs = _mm_insert_epi16(pairs, neighbours(row + offsets[4]), 4);
    pairs = _mm_insert_epi16(pairs, neighbours(row + offsets[5]), 5);
    pairs = _mm_insert_epi16(pairs, neighbours(row + offsets[6]), 6);
    pairs = _mm_insert_epi16(pairs, neighbours(row + offsets[7]), 7);
    return _mm256_cvtepu8_epi16(pairs);
}

// 32 - f in the low half of each number and f in the high half, to be multiplied with a pair of neighbours.
__attribute__((target("avx2"))) inline __m256i weights_of(__m256i fractions) {
    return _mm256_or_si256(_mm256_sub_epi32(_mm256_set1_epi32(kUnits), fractions), _mm256_slli_epi32(fractions, 16));
}

// Eight pixels as 32-bit numbers.
__attribute__((target("avx2"))) inline __m256i sample_eight(const uint8_t* framed, ptrdiff_t stride,
                                                            const int32_t* offsets, const uint16_t* fractions) {
    const __m256i fraction = _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(fractions)));
    const __m256i across = weights_of(_mm256_and_si256(fraction, _mm256_set1_epi32(0xff)));
    const __m256i down = weights_of(_mm256_srli_epi32(fraction, 8));
    const __m256i upper = _mm256_madd_epi16(load_neighbours(framed, offsets), across);
    const __m256i lower = _mm256_madd_epi16(load_neighbours(framed + stride, offsets), across);
    const __m256i both = _mm256_or_si256(upper, _mm256_slli_epi32(lower, 16));
    const __m256i sum = _mm256_add_epi32(_mm256_madd_epi16(both, down), _mm256_set1_epi32(kRounding));
    return _mm256_srli_epi32(sum, kWeightBits);
}

__attribute__((target("avx2"))) void sample_row_avx2(const uint8_t* framed, ptrdiff_t stride, const int32_t* offsets,
                                                     const uint16_t* fractions, uint8_t* target, int count) {
    // Packing works on halves of the registers; this puts the groups of four bytes into order again.
    const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
    int i = 0;
    for (; i + 32 <= count; i += 32) {
        const __m256i a = sample_eight(framed, stride, offsets + i, fractions + i);
        const __m256i b = sample_eight(framed, stride, offsets + i + 8, fractions + i + 8);
        const __m256i c = sample_eight(framed, stride, offsets + i + 16, fractions + i + 16);
        const __m256i d = sample_eight(framed, stride, offsets + i + 24, fractions + i + 24);
        const __m256i bytes = _mm256_packus_epi16(_mm256_packus_epi32(a, b), _mm256_packus_epi32(c, d));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(target + i), _mm256_permutevar8x32_epi32(bytes, order));
    }
    for (; i + 8 <= count; i += 8) {
        const __m256i a = sample_eight(framed, stride, offsets + i, fractions + i);
        const __m128i words = _mm_packus_epi32(_mm256_castsi256_si128(a), _mm256_extracti128_si256(a, 1));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(target + i), _mm_packus_epi16(words, words));
    }
    sample_row_plain(framed, stride, offsets + i, fractions + i, target + i, count - i);
}

// What is outside, infinite or not a number goes to -2 pixels, as in units_of.
__attribute__((target("avx2"))) inline __m256i units_of_eight(const float* positions, int size) {
    const __m256 position = _mm256_loadu_ps(positions);
    const __m256 inside =
        _mm256_and_ps(_mm256_cmp_ps(position, _mm256_set1_ps(-2.0f), _CMP_GT_OQ),
                      _mm256_cmp_ps(position, _mm256_set1_ps(static_cast<float>(size) + 1.0f), _CMP_LT_OQ));
    const __m256i units = _mm256_cvtps_epi32(_mm256_mul_ps(position, _mm256_set1_ps(kUnits)));
    return _mm256_blendv_epi8(_mm256_set1_epi32(-2 * kUnits), units, _mm256_castps_si256(inside));
}

// All ones where -1 <= pixel < size.
__attribute__((target("avx2"))) inline __m256i touching(__m256i pixel, int size) {
    return _mm256_and_si256(_mm256_cmpgt_epi32(pixel, _mm256_set1_epi32(-2)),
                            _mm256_cmpgt_epi32(_mm256_set1_epi32(size), pixel));
}

__attribute__((target("avx2"))) void find_samples_avx2(TableRows::Row row, int count, const FramedPlane& source,
                                                       int32_t* offsets, uint16_t* fractions) {
    const cv::Mat pixels = source.pixels();
    const __m256i stride = _mm256_set1_epi32(static_cast<int>(source.stride()));
    const __m256i one = _mm256_set1_epi32(1);
    const __m256i below_one = _mm256_set1_epi32(kUnits - 1);
    int i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m256i x = units_of_eight(row.x + i, pixels.cols);
        const __m256i y = units_of_eight(row.y + i, pixels.rows);
        const __m256i left = _mm256_srai_epi32(x, 5);
        const __m256i top = _mm256_srai_epi32(y, 5);
        const __m256i touches = _mm256_and_si256(touching(left, pixels.cols), touching(top, pixels.rows));
        const __m256i offset =
            _mm256_add_epi32(_mm256_mullo_epi32(_mm256_add_epi32(top, one), stride), _mm256_add_epi32(left, one));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(offsets + i), _mm256_and_si256(offset, touches));
        const __m256i fraction = _mm256_and_si256(
            _mm256_or_si256(_mm256_and_si256(x, below_one), _mm256_slli_epi32(_mm256_and_si256(y, below_one), 8)),
            touches);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(fractions + i),
                         _mm_packus_epi32(_mm256_castsi256_si128(fraction), _mm256_extracti128_si256(fraction, 1)));
    }
    find_samples_plain({row.x + i, row.y + i}, count - i, source, offsets + i, fractions + i);
}

#endif

}  // namespace

FramedPlane::FramedPlane(int rows, int cols) {
    create_large(&framed_, rows + 2, cols + 2, CV_8UC1);
    // The pixels are the user's to fill: clearing them too would touch every page of a large plane once more.
    for (cv::Mat edge : {framed_.row(0), framed_.row(rows + 1), framed_.col(0), framed_.col(cols + 1)}) {
        edge.setTo(0);
    }
    pixels_ = framed_(cv::Rect(1, 1, cols, rows));
}

SampleTable::SampleTable(const TableRows& table, const FramedPlane& source) {
    const ImageSize size = table.size();
    create_large(&offsets_, size.height, size.width, CV_32SC1);
    create_large(&fractions_, size.height, size.width, CV_16UC1);
    in_parallel(size.height, [&](const cv::Range& rows) {
        std::vector<float> scratch;
        for (int row = rows.start; row < rows.end; ++row) {
            find_samples(table.row(row, &scratch), size.width, source, offsets_.ptr<int32_t>(row),
                         fractions_.ptr<uint16_t>(row));
        }
    });
}

// The ring's tables are read in runs of so many rows, which memory is read ahead for: between two of its own rows there
// are hundreds of kilobytes of others. The rows themselves stay in the cache until they are mixed.
constexpr int kRowsInARun = 64;

void SampleTable::sample(const std::vector<SampledPlane>& planes, const SeamRing& ring) const {
    in_parallel(offsets_.rows, [&](const cv::Range& rows) {
        std::vector<uint8_t> scratch;
        for (int start = rows.start; start < rows.end; start += kRowsInARun) {
            const cv::Range run(start, std::min(start + kRowsInARun, rows.end));
            for (const SampledPlane& plane : planes) {
                sample_run(plane, ring, run, &scratch);
            }
        }
    });
}

void SampleTable::sample_run(const SampledPlane& plane, const SeamRing& ring, const cv::Range& run,
                             std::vector<uint8_t>* scratch) const {
    cv::Mat target = plane.target;
    for (int row = run.start; row < run.end; ++row) {
        sample_row(plane.source->framed(), plane.source->stride(), offsets_.ptr<int32_t>(row),
                   fractions_.ptr<uint16_t>(row), target.ptr(row), offsets_.cols);
    }
    for (int row = run.start; row < run.end; ++row) {
        ring.mix_row(row, *plane.source, scratch, target.ptr(row));
    }
}

void sample_once(const TableRows& table, const std::vector<SampledPlane>& planes, double feather) {
    const ImageSize size = table.size();
    in_parallel(size.height, [&](const cv::Range& rows) {
        std::vector<float> scratch;
        std::vector<int32_t> offsets(static_cast<size_t>(size.width));
        std::vector<uint16_t> fractions(static_cast<size_t>(size.width));
        std::vector<uint8_t> ring_scratch;
        SeamRing ring = feather > 0 ? SeamRing(table, rows.start, rows.end, feather) : SeamRing();
        for (int row = rows.start; row < rows.end; ++row) {
            const TableRows::Row positions = table.row(row, &scratch);
            find_samples(positions, size.width, *planes[0].source, offsets.data(), fractions.data());
            if (feather > 0) {
                ring.find_row(table, row, positions, *planes[0].source);
            }
            for (const SampledPlane& plane : planes) {
                cv::Mat target = plane.target;
                sample_row(plane.source->framed(), plane.source->stride(), offsets.data(), fractions.data(),
                           target.ptr(row), size.width);
                ring.mix_row(row, *plane.source, &ring_scratch, target.ptr(row));
            }
        }
    });
}

SeamRing kept_ring(const TableRows& table, double feather, const FramedPlane& source) {
    const int height = table.size().height;
    SeamRing ring(table, 0, height, feather);
    in_parallel(height, [&](const cv::Range& rows) {
        std::vector<float> scratch;
        for (int row = rows.start; row < rows.end; ++row) {
            ring.find_row(table, row, table.row(row, &scratch), source);
        }
    });
    return ring;
}

void find_samples_plain(TableRows::Row row, int count, const FramedPlane& source, int32_t* offsets,
                        uint16_t* fractions) {
    const cv::Mat pixels = source.pixels();
    const auto stride = static_cast<int>(source.stride());
    for (int i = 0; i < count; ++i) {
        const int units_x = units_of(row.x[i], pixels.cols);
        const int units_y = units_of(row.y[i], pixels.rows);
        // Pixel -1 is the frame; the upper left neighbour may be it, and the lower right one its other side.
        const int left = units_x >> 5;
        const int top = units_y >> 5;
        const bool touches = left >= -1 && left < pixels.cols && top >= -1 && top < pixels.rows;
        offsets[i] = touches ? (top + 1) * stride + left + 1 : 0;
        fractions[i] = touches ? static_cast<uint16_t>((units_x & 31) | (units_y & 31) << 8) : 0;
    }
}

void find_samples(TableRows::Row row, int count, const FramedPlane& source, int32_t* offsets, uint16_t* fractions) {
#if defined(__x86_64__)
    if (has_avx2()) {
        find_samples_avx2(row, count, source, offsets, fractions);
        return;
    }
#endif
    find_samples_plain(row, count, source, offsets, fractions);
}

void sample_row_plain(const uint8_t* framed, ptrdiff_t stride, const int32_t* offsets, const uint16_t* fractions,
                      uint8_t* target, int count) {
    for (int i = 0; i < count; ++i) {
        target[i] = sampled(framed + offsets[i], stride, fractions[i]);
    }
}

void sample_row(const uint8_t* framed, ptrdiff_t stride, const int32_t* offsets, const uint16_t* fractions,
                uint8_t* target, int count) {
#if defined(__x86_64__)
    if (has_avx2()) {
        sample_row_avx2(framed, stride, offsets, fractions, target, count);
        return;
    }
#endif
    sample_row_plain(framed, stride, offsets, fractions, target, count);
}
