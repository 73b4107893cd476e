// The sound of the sample movies, sample by sample: known at every instant, and the same on every machine, since it is
// computed in whole numbers.
#pragma once

#include <algorithm>
#include <cstdint>

namespace sample {

// Sample `index` of a channel (0 is the first) of the movie of lens 1 or 2, at `rate` samples per second.
//
// Even channels hold a tone that climbs two octaves every second, from 220 Hz in movie 1 and from 330 Hz in movie 2.
// Odd channels count: the value climbs by 1 each sample in movie 1 and falls by 1 in movie 2, and starts anew every
// second (every 65536 samples, where a second has more). So the samples of an odd channel tell where they come from.
inline int16_t sound_sample(int movie, int channel, int64_t index, int rate) {
    if (channel % 2 == 1) {
        const int64_t period = std::min(rate, 65536);
        const int64_t value = index % period - period / 2;
        return static_cast<int16_t>(movie == 1 ? value : -1 - value);
    }
    const int64_t n = index % rate;
    const int64_t low = movie == 1 ? 220 : 330;
    const int64_t climb = 3 * low;
    // In 65536ths of a wave.
    const int64_t phase = low * n * 65536 / rate + climb * n * n / rate * 32768 / rate;
    // Two parabolas in place of a sine.
    const int64_t half = phase & 32767;
    const int64_t height = half * (32768 - half) / 32768;  // 0 to 8192
    return static_cast<int16_t>((phase & 32768) == 0 ? height : -height);
}

}  // namespace sample
