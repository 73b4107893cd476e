// A folder of its own for each test, and whole files read and written.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "support/bytes.h"

namespace test_support {

inline void write_file(const std::string& path, const Bytes& bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + path);
    }
}

inline Bytes read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    return Bytes(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// Made with a name of its own, removed with all that lies in it.
class TempDir {
  public:
    TempDir() {
        std::string name = (std::filesystem::temp_directory_path() / "nq360-test-XXXXXX").string();
        if (!mkdtemp(name.data())) {
            throw std::runtime_error("cannot make a temporary folder " + name);
        }
        path_ = name;
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return path_; }

    // The path of a name in the folder; nothing is made.
    std::string file(const std::string& name) const { return path_ + "/" + name; }

    // Writes a file of the folder and returns its path.
    std::string file(const std::string& name, const Bytes& bytes) const {
        const std::string path = file(name);
        write_file(path, bytes);
        return path;
    }

  private:
    std::string path_;
};

}  // namespace test_support
