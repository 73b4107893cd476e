// A movie that several machines make: each writes a share of its parts, one joins them.
#include "media/share.h"

#include <algorithm>
#include <memory>

#include "base/files.h"
#include "base/fingerprint.h"
#include "base/log.h"
#include "media/frame_ticks.h"
#include "media/libavif.h"
#include "media/output_closer.h"
#include "media/output_option.h"
#include "media/part_plan.h"
#include "media/share_file.h"

namespace {

constexpr int64_t kUsualInterval = 10;  // frames between two progress replies, as of an export

// Known again on another machine, whose copy may have another name and time. Packets' sizes differ from shot to shot as
// the pictures do.
std::string fingerprint_of_input(const libavIF& media, int input) {
    if (media.is_still[input]) {
        return fingerprint_of_file(media.input_path[input]);
    }
    Fingerprint fingerprint;
    for (unsigned i = 0; i < media.input_format[input]->nb_streams; ++i) {
        AVStream* const stream = media.input_format[input]->streams[i];
        for (int at = 0; at < avformat_index_get_entries_count(stream); ++at) {
            const AVIndexEntry* entry = avformat_index_get_entry(stream, at);
            for (const int64_t number : {entry->pos, entry->timestamp, int64_t{entry->size}}) {
                fingerprint.add(number);
            }
        }
    }
    return fingerprint.text();
}

std::string hexadecimal(const uint8_t* bytes, int count) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += {kDigits[bytes[i] >> 4], kDigits[bytes[i] & 15]};
    }
    return text;
}

AVRational rational_in(const ShareHeader& header, const std::string& name) {
    return {static_cast<int>(header.integer(name + " numerator")),
            static_cast<int>(header.integer(name + " denominator"))};
}

bool is_positive(AVRational value) {
    return value.num > 0 && value.den > 0;
}

void add_rational(const std::string& name, AVRational value, ShareHeader* header) {
    header->add(name + " numerator", value.num);
    header->add(name + " denominator", value.den);
}

// As much of a text as a reply has room for.
std::string beginning_of(const std::string& text) {
    constexpr size_t kBytes = 100;
    return text.size() <= kBytes ? text : text.substr(0, kBytes) + "...";
}

// Throws where a file cannot be a share of the first one's movie.
void check_common(const ShareHeader& first, const ShareHeader& other, const std::string& path) {
    if (other.common.size() != first.common.size()) {
        throw ShareFault(path, "it was made by another version than the first one given");
    }
    for (size_t i = 0; i < first.common.size(); ++i) {
        const auto& [name, value] = first.common[i];
        if (other.common[i] != first.common[i]) {
            std::string why = "it is of another movie than the first one given: ";
            why.append(beginning_of(name)).append(" is ").append(beginning_of(other.common[i].second));
            why.append(", not ").append(beginning_of(value));
            throw ShareFault(path, why);
        }
    }
    if (other.count != first.count) {
        throw ShareFault(path, "it is one of " + std::to_string(other.count) + " parts, the first one given of " +
                                   std::to_string(first.count));
    }
}

// The pictures of all shares, one share after the other, each checked to its end.
class Pictures {
  public:
    explicit Pictures(const ShareSet& shares) : shares_(shares) {}

    bool next(ShareRecord* record);

  private:
    bool next_in_share(ShareRecord* record);

    const ShareSet& shares_;
    std::unique_ptr<ShareReader> reader_;
    size_t share_ = 0;  // the next one
    int64_t picture_ = 0;
};

bool Pictures::next_in_share(ShareRecord* record) {
    while (reader_ && reader_->next(record)) {
        if (!record->is_sound) {
            return true;
        }
    }
    reader_.reset();
    return false;
}

bool Pictures::next(ShareRecord* record) {
    while (!next_in_share(record)) {
        if (share_ == shares_.paths.size()) {
            return false;
        }
        reader_ = std::make_unique<ShareReader>(shares_.paths[share_++]);
    }
    if (record->picture != picture_ || record->packet->pts != picture_ * kFrameTicks) {
        throw ShareFault(shares_.paths[share_ - 1], "its pictures do not follow on those of the part before");
    }
    ++picture_;
    return true;
}

// The sound, all of which is in the first share.
class Sound {
  public:
    explicit Sound(const ShareSet& shares) : reader_(shares.paths.front()) { next(); }

    // The next packet that comes before this picture; null when there is none.
    AVPacket* before(int64_t picture) {
        return record_.packet && record_.picture <= picture ? record_.packet.get() : nullptr;
    }
    AVPacket* any() { return record_.packet.get(); }
    void next() {
        do {
            record_.packet.reset();
        } while (reader_.next(&record_) && !record_.is_sound);
    }

  private:
    ShareReader reader_;
    ShareRecord record_{};
};

// The numbers of the shares without a file, as many of them as help.
std::string missing_numbers(const std::vector<std::string>& paths) {
    constexpr int kMostNamed = 20;
    std::string numbers;
    int missing = 0;
    for (size_t i = 0; i < paths.size(); ++i) {
        if (paths[i].empty() && ++missing <= kMostNamed) {
            numbers += (missing == 1 ? "" : ", ") + std::to_string(i + 1);
        }
    }
    return missing <= kMostNamed ? numbers : numbers + " and " + std::to_string(missing - kMostNamed) + " more";
}

// While it lives, packets go to the share.
class InUse {
  public:
    InUse(ShareWriter* writer, ShareWriter** place) : place_(place) { *place_ = writer; }
    ~InUse() { *place_ = nullptr; }
    InUse(const InUse&) = delete;
    InUse& operator=(const InUse&) = delete;

  private:
    ShareWriter** place_;
};

}  // namespace

ShareSet gather_shares(const std::vector<std::string>& paths) {
    ShareSet set;
    for (const std::string& path : paths) {
        const ShareReader reader(path);
        const ShareHeader& header = reader.header();
        if (set.paths.empty()) {
            set.header = header;
            set.paths.resize(static_cast<size_t>(header.count));
        }
        check_common(set.header, header, path);
        std::string& place = set.paths[static_cast<size_t>(header.number - 1)];
        if (!place.empty()) {
            throw ShareFault(path, "part " + std::to_string(header.number) + " is given twice");
        }
        place = path;
    }
    const std::string missing = missing_numbers(set.paths);
    if (!missing.empty()) {
        throw ShareFault(paths.front(),
                         "of its " + std::to_string(set.paths.size()) + " parts these are missing: " + missing);
    }
    return set;
}

// `plan` is null where the movie cannot be made in parts apart from each other: then all of it is the first share.
ShareHeader libavIF::share_header(const OutputOption& option, const PartPlan* plan) const {
    ShareHeader header = option.share;
    header.add("lens1", fingerprint_of_input(*this, 0));
    header.add("lens2", fingerprint_of_input(*this, 1));
    header.add("pairs", plan ? plan->pair_count() : -1);
    header.add("part pairs", option.part_pairs);
    header.add("encoder", avcodec_get_name(video_encoder_context->codec_id));
    header.add("encoder's header",
               hexadecimal(video_encoder_context->extradata, video_encoder_context->extradata_size));
    header.add("picture width", video_encoder_context->width);
    header.add("picture height", video_encoder_context->height);
    header.add("picture bits per second", video_encoder_context->bit_rate);
    add_rational("frame time", video_encoder_context->time_base, &header);
    add_rational("stream time", video_stream->time_base, &header);
    header.add("sound codec", audio_encoder_context ? audio_encoder_context->codec_id : 0);
    header.add("sound samples per second", audio_encoder_context ? audio_encoder_context->sample_rate : 0);
    header.add("sound bits per second", audio_encoder_context ? audio_encoder_context->bit_rate : 0);
    return header;
}

int libavIF::write_share(const char* export_path, const char* cancel_path, const OutputOption& option,
                         const PartPlan* plan, const ReportProgress& report) {
    ShareWriter writer;
    const int opened = writer.open(export_path, share_header(option, plan));
    if (opened < 0) {
        return fail(opened);
    }
    const InUse in_use(&writer, &share_file);
    bool starts_over = false;
    int written = 0;
    if (plan) {
        written = write_parts(option, *plan, cancel_path, report, &starts_over);
    } else if (option.share.number == 1) {
        written = write_pairs(option, cancel_path, report);
    }
    if (written >= 0 && !starts_over && option.share.number == 1) {
        written = finish_streams();
    }
    if (written < 0) {
        return written;
    }
    if (starts_over) {
        return fail(AVERROR_INVALIDDATA,
                    "a part cannot be read as its index tells; when its files can be read, export it in one piece");
    }
    const int closed = writer.close();
    return closed < 0 ? fail(closed) : 0;
}

int libavIF::write_joined(const char* export_path, const char* cancel_path, const ShareSet& shares,
                          const ReportProgress& report) {
    OutputCloser closer(this);
    if (open_output(export_path) < 0 ||
        check_video_output({static_cast<int>(shares.header.integer("picture width")),
                            static_cast<int>(shares.header.integer("picture height"))}) < 0 ||
        join_streams(shares) < 0 || begin_video() < 0 || join_packets(shares, cancel_path, report) < 0) {
        return error_code;
    }
    return finish_video();
}

// The encoders are only asked what they tell the container.
int libavIF::join_streams(const ShareSet& shares) {
    const ShareHeader& header = shares.header;
    const auto sound = static_cast<AVCodecID>(header.integer("sound codec"));
    if (sound != AV_CODEC_ID_NONE &&
        open_sound_stream({sound, static_cast<int>(header.integer("sound samples per second")),
                           header.integer("sound bits per second")}) < 0) {
        return error_code;
    }
    VideoSettings settings = {};
    settings.codec = AV_CODEC_ID_H264;
    settings.width = static_cast<int>(header.integer("picture width"));
    settings.height = static_cast<int>(header.integer("picture height"));
    settings.bit_rate = header.integer("picture bits per second");
    settings.frame_time = rational_in(header, "frame time");
    settings.stream_time = rational_in(header, "stream time");
    if (!is_positive(settings.frame_time) || !is_positive(settings.stream_time)) {
        throw ShareFault(shares.paths.front(), "its times cannot be");
    }
    if (open_video_stream(settings) < 0) {
        return error_code;
    }
    if (hexadecimal(video_encoder_context->extradata, video_encoder_context->extradata_size) !=
        header.text("encoder's header")) {
        throw ShareFault(shares.paths.front(), "it was made with another encoder than this machine has");
    }
    avcodec_free_context(&video_encoder_context);
    avcodec_free_context(&audio_encoder_context);
    return 0;
}

int libavIF::join_packets(const ShareSet& shares, const char* cancel_path, const ReportProgress& report) {
    Pictures pictures(shares);
    Sound sound(shares);
    const auto write_sound = [&](AVPacket* packet) {
        packet->stream_index = audio_stream ? audio_stream->index : -1;
        const int written = audio_stream ? write_sound_packet(packet) : 0;
        sound.next();
        return written;
    };
    ShareRecord record;
    int64_t count = 0;
    while (pictures.next(&record)) {
        while (AVPacket* const packet = sound.before(record.picture)) {
            if (write_sound(packet) < 0) {
                return error_code;
            }
        }
        if (write_video_packet(1, record.packet.get()) < 0) {
            return error_code;
        }
        ++count;
        const bool unwanted = count % kUsualInterval == 0 && report && report(NQ360_PROGRESS, count);
        if (unwanted || isCancelled(cancel_path)) {
            return stop();
        }
    }
    while (AVPacket* const packet = sound.any()) {
        if (write_sound(packet) < 0) {
            return error_code;
        }
    }
    const int64_t pairs = shares.header.integer("pairs");
    if (count == 0 || (pairs >= 0 && count != pairs)) {
        throw ShareFault(shares.paths.back(), "not all pictures of the movie are in its parts");
    }
    return 0;
}
