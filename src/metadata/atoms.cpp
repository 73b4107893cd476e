#include "metadata/atoms.h"

#include <algorithm>

#include "metadata/big_endian.h"

namespace {

constexpr size_t kShortHeader = 8;
constexpr size_t kLongHeader = 16;

// More atoms side by side are no movie's: the rest of them is not taken apart.
constexpr size_t kAtomLimit = 10000;

// Version, flags and the number of entries stand before the sample descriptions.
constexpr size_t kDescriptionsHead = 8;

struct Container {
    const char* parent;
    const char* type;
    size_t head;
};

constexpr Container kContainers[] = {
    {"moov", "trak", 0}, {"moov", "udta", 0}, {"trak", "mdia", 0},
    {"mdia", "minf", 0}, {"minf", "stbl", 0}, {"stbl", "stsd", kDescriptionsHead},
};

// Takes the payload from `head` on apart, and what it holds.
void take_apart(size_t head, Atom* atom) {
    if (atom->payload.size() < head) {
        return;
    }
    atom->children = parse_atoms(atom->payload, head, &atom->rest);
    atom->payload.resize(head);
    atom->payload.shrink_to_fit();
    for (Atom& child : atom->children) {
        for (const Container& container : kContainers) {
            if (atom->type == container.parent && child.type == container.type) {
                take_apart(container.head, &child);
            }
        }
    }
}

}  // namespace

std::vector<Atom> parse_atoms(const std::string& bytes, size_t from, std::string* rest) {
    std::vector<Atom> atoms;
    size_t at = std::min(from, bytes.size());
    while (bytes.size() - at >= kShortHeader && atoms.size() < kAtomLimit) {
        uint64_t size = from_big_endian(bytes, at, 4);
        const bool is_large = size == 1 && bytes.size() - at >= kLongHeader;
        const size_t header = is_large ? kLongHeader : kShortHeader;
        if (is_large) {
            size = from_big_endian(bytes, at + kShortHeader, 8);
        }
        if (size < header || size > bytes.size() - at) {
            break;
        }
        atoms.push_back({bytes.substr(at + 4, 4), bytes.substr(at + header, size - header), {}, "", is_large});
        at += size;
    }
    if (rest) {
        *rest = bytes.substr(at);
    }
    return atoms;
}

Atom parse_index(const std::string& payload) {
    Atom moov = {"moov", payload, {}, "", false};
    take_apart(0, &moov);
    return moov;
}

std::string atom_bytes(const Atom& atom) {
    std::string content = atom.payload;
    for (const Atom& child : atom.children) {
        content += atom_bytes(child);
    }
    content += atom.rest;
    const uint64_t size = kShortHeader + content.size();
    const bool is_large = atom.is_large || size > UINT32_MAX;
    return (is_large ? to_big_endian(1, 4) + atom.type + to_big_endian(size + kShortHeader, 8)
                     : to_big_endian(size, 4) + atom.type) +
           content;
}

Atom* find_child(Atom* parent, const std::string& type) {
    const auto child = std::find_if(parent->children.begin(), parent->children.end(),
                                    [&](const Atom& atom) { return atom.type == type; });
    return child == parent->children.end() ? nullptr : &*child;
}

Atom* find_descendant(Atom* parent, const std::vector<std::string>& types) {
    for (const std::string& type : types) {
        parent = parent ? find_child(parent, type) : nullptr;
    }
    return parent;
}
