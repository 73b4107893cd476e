// Where a job writes what it makes, and what becomes of it when the job ends.
#pragma once

#include <string>

class OutputPlace {
  public:
    enum Way {
        kInPlace,  // straight to the path: what stood there is lost with the first byte
        kBeside,   // to a file beside it, which takes its place once it is whole
    };

    // Nothing is touched yet. The path is borrowed; null only in place.
    OutputPlace(const char* path, Way way) : output_(path), way_(way) {}
    ~OutputPlace();
    OutputPlace(const OutputPlace&) = delete;
    OutputPlace& operator=(const OutputPlace&) = delete;

    // Makes ready to write: empty, or why that cannot be, in words for the person who named the path. To be called
    // before path().
    std::string prepare();

    // The file to write to.
    const char* path() const { return way_ == kInPlace ? output_ : beside_.c_str(); }

    // The output is whole. Throws a text when it cannot take its place.
    void keep();

    // The job has failed: what it wrote goes. So does what is left when the object does.
    void discard();

  private:
    const char* output_;
    Way way_;
    std::string target_;  // the file that the path leads to, through links
    std::string beside_;
    bool prepared_ = false;
};
