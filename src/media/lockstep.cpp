#include "media/lockstep.h"

#include <algorithm>

#include "projection/parallel.h"

extern "C" {
#include <libavutil/error.h>
}

int LockstepInput::read_packet() {
    const int packet = source->read();
    if (packet == LockstepSource::kVideo) {
        packet_read = true;
    } else if (packet == LockstepSource::kEndOfFile) {
        packet_read = true;
        at_end_of_file = true;
        wants_sound = false;
    } else if (packet == LockstepSource::kSound && wants_sound) {
        bool past_end = false;
        const int result = source->write_sound(&past_end);
        if (result < 0) {
            return result;
        }
        wants_sound = !past_end;
    }
    return std::min(packet, 0);
}

int LockstepInput::decode() {
    if (!wants_frame()) {
        return 0;
    }
    double seconds = 0;
    int result = source->receive(&seconds);
    if (result == LockstepSource::kNeedsPacket && packet_read) {
        packet_read = false;
        result = source->send();
        if (result >= 0) {
            result = source->receive(&seconds);
        }
    }
    if (result == LockstepSource::kFrame) {
        judge(seconds);
    } else if (result == LockstepSource::kNoMore || (result == LockstepSource::kNeedsPacket && at_end_of_file)) {
        ended = true;
    }
    // A movie without frames makes no pair; a still without its picture is a broken file.
    return ended && still && frames == 0 ? source->miss_picture() : std::min(result, 0);
}

void LockstepInput::judge(double seconds) {
    // In single precision, as the range is: the time of a frame exactly on a bound compares equal to it.
    const auto time = static_cast<float>(seconds);
    if (!still && time < start - kBoundMargin) {
        return;
    }
    if (!still && time > end + kBoundMargin) {
        ended = true;
        return;
    }
    frame_ready = true;
    ++frames;
}

bool LockstepInput::needs_reading_on() const {
    return !at_end_of_file && (still ? !packet_read : wants_sound);
}

void Lockstep::begin_pass() const {
    if (begin_pass_) {
        begin_pass_();
    }
}

bool Lockstep::can_pair() const {
    return !done_ && std::none_of(std::begin(inputs_), std::end(inputs_),
                                  [](const LockstepInput* input) { return input->ended && !input->frame_ready; });
}

int Lockstep::read_packets() {
    if (!can_pair()) {
        return 0;
    }
    const auto needs_packet = [](const LockstepInput* input) { return input->needs_packet(); };
    do {
        begin_pass();
        for (LockstepInput* input : inputs_) {
            const int result = input->needs_packet() ? input->read_packet() : 0;
            if (result < 0) {
                return result;
            }
        }
    } while (std::any_of(std::begin(inputs_), std::end(inputs_), needs_packet));
    return 0;
}

int Lockstep::decode_both() {
    int results[2] = {0, 0};
    in_parallel(2, [&](const cv::Range& range) {
        for (int i = range.start; i < range.end; ++i) {
            results[i] = inputs_[i]->decode();
        }
    });
    return results[0] < 0 ? results[0] : results[1];
}

int Lockstep::next_pair() {
    while (can_pair()) {
        if (!inputs_[0]->wants_frame() && !inputs_[1]->wants_frame()) {
            return 1;
        }
        int result = read_packets();
        if (result >= 0) {
            result = decode_both();
        }
        if (result < 0) {
            return result;
        }
    }
    return 0;
}

void Lockstep::pair_done() {
    for (LockstepInput* input : inputs_) {
        input->take_frame();
    }
    // Two stills (or movies whose containers count no frames) make one panorama.
    done_ = inputs_[0]->still && inputs_[1]->still;
}

int Lockstep::finish() {
    for (LockstepInput* input : inputs_) {
        while (input->needs_reading_on()) {
            begin_pass();
            const int result = input->read_packet();
            if (result < 0) {
                return result;
            }
        }
        // A movie has ended however far it was read. A still has, unless its file holds a second picture.
        input->ended = !input->still || input->at_end_of_file;
    }
    return 0;
}

int64_t Lockstep::count() const {
    return std::max(inputs_[0]->frames, inputs_[1]->frames);
}
