// Movies whose index tells of packets that are empty or not there.
#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/bytes.h"
#include "support/media.h"
#include "support/temp_dir.h"

namespace test_support {

inline std::vector<StoredPacket> packets_of(const std::string& movie, bool video) {
    std::vector<StoredPacket> packets;
    for (const StoredPacket& packet : packets_of(movie)) {
        if (packet.video == video) {
            packets.push_back(packet);
        }
    }
    return packets;
}

namespace movie_index_detail {

// Finds the table of this kind, by the place of its entries, for which `change` makes a change, and keeps that.
inline void change_table(const std::string& movie, const std::string& type, size_t head,
                         const std::function<bool(Bytes& bytes, size_t entries, size_t count)>& change) {
    Bytes bytes = read_file(movie);
    const std::string characters = to_string(bytes);
    for (size_t at = characters.rfind(type); at != std::string::npos && at > 0; at = characters.rfind(type, at - 1)) {
        const size_t entries = at + head;
        if (change(bytes, entries, read_big_endian(bytes, entries - 4, 4))) {
            write_file(movie, bytes);
            return;
        }
    }
    throw std::runtime_error("no such packet in the index of " + movie);
}

}  // namespace movie_index_detail

// Takes the bytes from the packet of the movie's pictures (or sound) with this number, or from the next one that ends
// its chunk, so that no other packet's place changes: the index tells the size of each, and where each chunk begins.
// Returns that packet's number.
inline size_t empty_packet(const std::string& movie, bool video, size_t number) {
    const std::vector<StoredPacket> packets = packets_of(movie, video);
    const auto ends_chunk = [&](size_t i) {
        return packets.at(i).position + static_cast<int64_t>(packets[i].bytes.size()) != packets.at(i + 1).position;
    };
    while (!ends_chunk(number)) {
        ++number;
    }
    movie_index_detail::change_table(movie, "stsz", 16, [&](Bytes& bytes, size_t entries, size_t count) {
        const size_t entry = entries + 4 * number;
        if (count != packets.size() || read_big_endian(bytes, entry, 4) != packets[number].bytes.size()) {
            return false;
        }
        overwrite(bytes, entry, be32(0));
        return true;
    });
    return number;
}

// Moves the chunks of the movie's pictures (or sound) from the packet with this number on, or the next one that begins
// a chunk, to behind the end of the file.
inline void lose_packets(const std::string& movie, bool video, size_t number) {
    const std::vector<StoredPacket> packets = packets_of(movie, video);
    movie_index_detail::change_table(movie, "stco", 12, [&](Bytes& bytes, size_t entries, size_t count) {
        bool found = false;
        for (size_t entry = entries; entry < entries + 4 * count; entry += 4) {
            const auto position = static_cast<int64_t>(read_big_endian(bytes, entry, 4));
            for (size_t i = number; i < packets.size() && !found; ++i) {
                found = packets[i].position == position;
            }
            if (found) {
                overwrite(bytes, entry, be32(static_cast<uint64_t>(position) + bytes.size()));
            }
        }
        return found;
    });
}

}  // namespace test_support
