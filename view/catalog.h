// The shots of the folder as they are at the moment.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "jobs/shots.h"
#include "looks.h"
#include "shared_folders.h"

// A shot with the names of its files; it is known by the first of them.
struct ListedShot {
    ShotKind kind;
    std::vector<std::string> names;
    Description description;  // of the first file
    bool damaged = false;
    std::string why;       // it is alone, or cannot be read
    uint64_t version = 0;  // changes with its files
};

struct Listing {
    std::vector<ListedShot> shots;
    std::vector<std::string> strips;  // PNG pictures, which may lie over the seam
    size_t pending = 0;               // files that nothing is known of yet
    std::string error;                // the folder cannot be read
};

// What is known of one file.
struct KnownFile {
    FileVersion state;
    int64_t number = 0;        // another one for a file that was away in between
    std::optional<Look> look;  // nothing: not even glanced at
    bool whole = false;        // looked at, not only glanced at
    bool taken = false;        // by a thread that is at it

    // A glance that ends late takes back nothing.
    void learn(const Look& found, bool is_whole);
};

class Catalog {
  public:
    Catalog(const SharedFolders& folders, Looks& looks);
    ~Catalog();
    Catalog(const Catalog&) = delete;
    Catalog& operator=(const Catalog&) = delete;

    // Nobody waits here any more.
    void close();

    // Looks at the folder anew; waits so long for what is not known yet.
    Listing list(std::chrono::milliseconds patience);

    // The shot whose first file has this name.
    std::optional<ListedShot> find(const std::string& name);

    // The look of a file: that of its turn in the background, or now.
    Look look_at(const std::string& name, const FileVersion& state);

  private:
    void scan(std::string* error);
    void work();
    KnownFile* next(bool* glance, std::string* name);
    const Listing& listing();
    Listing make_listing() const;
    void tell_of_change();

    const SharedFolders& folders_;
    Looks& looks_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::string, KnownFile> entries_;
    int64_t last_number_ = 0;
    std::vector<std::string> strips_;
    std::optional<Listing> listing_;  // until something changes: a preview asks for it many times a second
    bool ends_ = false;
    std::vector<std::thread> threads_;
};
