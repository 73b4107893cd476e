// The atoms of a movie's index (moov) in memory, to be changed and written again.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct Atom {
    std::string type;     // four characters
    std::string payload;  // all of it; of an atom with children what stands before them
    std::vector<Atom> children;
    std::string rest;       // behind the children: padding, or what is no atom
    bool is_large = false;  // has a 64-bit size
};

// The atoms that follow one another from a place on. What is no atom goes to `rest`, which may be null.
std::vector<Atom> parse_atoms(const std::string& bytes, size_t from, std::string* rest);

// A moov atom with its tracks down to the sample descriptions and its user data as trees; all other atoms stay whole.
Atom parse_index(const std::string& payload);

std::string atom_bytes(const Atom& atom);

// The first child of this type, or null.
Atom* find_child(Atom* parent, const std::string& type);
// The same from child to child.
Atom* find_descendant(Atom* parent, const std::vector<std::string>& types);
