#include "media/share_file.h"

#include <algorithm>

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/crc.h>
}

#include "base/files.h"
#include "metadata/big_endian.h"

namespace {

constexpr char kMagic[] = "nq360 share 1\n";
constexpr char kPicture = 'P';
constexpr char kSound = 'S';
constexpr char kEnd = 'E';

// Many times what a share has of each: a damaged number must not fill the memory.
constexpr uint64_t kMostTexts = 1000;
constexpr int64_t kMostTextBytes = 1 << 20;
constexpr int64_t kMostPacketBytes = 1 << 28;

const char* const kNumber = "share";
const char* const kCount = "shares";

uint32_t crc_of(uint32_t crc, const uint8_t* bytes, int64_t count) {
    return av_crc(av_crc_get_table(AV_CRC_32_IEEE_LE), crc, bytes, static_cast<size_t>(count));
}

}  // namespace

int ShareWriter::open(const char* path, const ShareHeader& header) {
    const int opened = file_.open(path);
    if (opened < 0) {
        return opened;
    }
    put(kMagic);
    put_number(header.common.size() + 2, 4);
    put_text(kNumber);
    put_text(std::to_string(header.number));
    put_text(kCount);
    put_text(std::to_string(header.count));
    for (const auto& [name, value] : header.common) {
        put_text(name);
        put_text(value);
    }
    return std::min(file_.io()->error, 0);
}

int ShareWriter::write_picture(AVPacket* packet) {
    const int written = write(kPicture, packet);
    ++next_picture_;
    av_packet_unref(packet);
    return written;
}

int ShareWriter::write_sound(AVPacket* packet) {
    return write(kSound, packet);
}

int ShareWriter::close() {
    put(std::string(1, kEnd));
    put_number(crc_, 4);
    return file_.close();
}

int ShareWriter::write(char kind, const AVPacket* packet) {
    put(std::string(1, kind));
    put_number(static_cast<uint64_t>(packet->size), 4);
    put(packet->data, packet->size);
    for (const int64_t number : {next_picture_, packet->pts, packet->dts, packet->duration, int64_t{packet->flags}}) {
        put_number(static_cast<uint64_t>(number), 8);
    }
    put_number(static_cast<uint64_t>(packet->side_data_elems), 4);
    for (int i = 0; i < packet->side_data_elems; ++i) {
        const AVPacketSideData& side = packet->side_data[i];
        put_number(static_cast<uint64_t>(side.type), 4);
        put_number(side.size, 4);
        put(side.data, static_cast<int>(side.size));
    }
    return std::min(file_.io()->error, 0);
}

void ShareWriter::put(const std::string& bytes) {
    put(reinterpret_cast<const uint8_t*>(bytes.data()), static_cast<int>(bytes.size()));
}

void ShareWriter::put(const uint8_t* bytes, int count) {
    crc_ = crc_of(crc_, bytes, count);
    avio_write(file_.io(), bytes, count);
}

void ShareWriter::put_number(uint64_t number, size_t size) {
    put(to_big_endian(number, size));
}

void ShareWriter::put_text(const std::string& text) {
    put_number(text.size(), 4);
    put(text);
}

ShareReader::ShareReader(const std::string& path) : path_(path) {
    if (!isRegularFile(path.c_str())) {  // a pipe would keep the reader waiting
        throw ShareFault(path, "it is no part of a movie");
    }
    const int opened = avio_open(&io_, file_url(path.c_str()).c_str(), AVIO_FLAG_READ);
    if (opened < 0) {
        throw ShareFault(path, "it cannot be opened: " + error_words(opened));
    }
    try {
        read_header();
    } catch (...) {
        avio_closep(&io_);
        throw;
    }
}

ShareReader::~ShareReader() {
    avio_closep(&io_);
}

void ShareReader::read_header() {
    std::string magic(sizeof(kMagic) - 1, '\0');
    const int there = avio_read(io_, reinterpret_cast<uint8_t*>(magic.data()), static_cast<int>(magic.size()));
    if (there != static_cast<int>(magic.size()) || magic != kMagic) {
        throw ShareFault(path_, "it is no part of a movie");
    }
    crc_ = crc_of(0, reinterpret_cast<const uint8_t*>(magic.data()), there);
    const uint64_t texts = get_number(4);
    if (texts > kMostTexts) {
        throw damaged();
    }
    for (uint64_t i = 0; i < texts; ++i) {
        std::string name = get_text();
        std::string value = get_text();
        header_.common.emplace_back(std::move(name), std::move(value));
    }
    const int64_t number = header_.integer(kNumber);
    const int64_t count = header_.integer(kCount);
    if (number < 1 || number > count || count > kMostShares) {
        throw damaged();
    }
    header_.number = static_cast<int>(number);
    header_.count = static_cast<int>(count);
    auto& common = header_.common;
    common.erase(std::remove_if(common.begin(), common.end(),
                                [](const auto& one) { return one.first == kNumber || one.first == kCount; }),
                 common.end());
}

bool ShareReader::next(ShareRecord* record) {
    const auto kind = static_cast<char>(get_number(1));
    if (kind == kEnd) {
        const uint32_t crc = crc_;
        if (get_number(4) != crc) {
            throw damaged();
        }
        return false;
    }
    if (kind != kPicture && kind != kSound) {
        throw damaged();
    }
    record->is_sound = kind == kSound;
    record->packet = new_packet();
    AVPacket* const packet = record->packet.get();
    const int size = get_size(kMostPacketBytes);
    if (av_new_packet(packet, size) < 0) {
        throw std::bad_alloc();
    }
    get(packet->data, size);
    record->picture = static_cast<int64_t>(get_number(8));
    packet->pts = static_cast<int64_t>(get_number(8));
    packet->dts = static_cast<int64_t>(get_number(8));
    packet->duration = static_cast<int64_t>(get_number(8));
    packet->flags = static_cast<int>(get_number(8));
    if (packet->pts != packet->dts) {  // neither encoder reorders
        throw damaged();
    }
    read_side_data(packet);
    return true;
}

void ShareReader::read_side_data(AVPacket* packet) {
    const uint64_t count = get_number(4);
    if (count > AV_PKT_DATA_NB) {
        throw damaged();
    }
    for (uint64_t i = 0; i < count; ++i) {
        const uint64_t type = get_number(4);
        const int size = get_size(kMostPacketBytes);
        if (type >= AV_PKT_DATA_NB) {
            throw damaged();
        }
        uint8_t* const bytes =
            av_packet_new_side_data(packet, static_cast<AVPacketSideDataType>(type), static_cast<size_t>(size));
        if (!bytes) {
            throw std::bad_alloc();
        }
        get(bytes, size);
    }
}

ShareFault ShareReader::damaged() const {
    return {path_, "it is damaged, or not whole"};
}

void ShareReader::get(uint8_t* bytes, int64_t count) {
    if (avio_read(io_, bytes, static_cast<int>(count)) != count) {
        throw io_->error < 0 ? ShareFault(path_, "it cannot be read: " + error_words(io_->error)) : damaged();
    }
    crc_ = crc_of(crc_, bytes, count);
}

uint64_t ShareReader::get_number(size_t size) {
    std::string bytes(size, '\0');
    get(reinterpret_cast<uint8_t*>(bytes.data()), static_cast<int64_t>(size));
    return from_big_endian(bytes, 0, size);
}

// No more than the file still has, nor than `most`.
int ShareReader::get_size(int64_t most) {
    const auto size = static_cast<int64_t>(get_number(4));
    if (size > avio_size(io_) - avio_tell(io_) || size > most) {
        throw damaged();
    }
    return static_cast<int>(size);
}

std::string ShareReader::get_text() {
    std::string text(static_cast<size_t>(get_size(kMostTextBytes)), '\0');
    get(reinterpret_cast<uint8_t*>(text.data()), static_cast<int64_t>(text.size()));
    return text;
}
