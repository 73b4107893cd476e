#include "catalog.h"

#include <algorithm>
#include <utility>

#include <sys/resource.h>
#include <unistd.h>

#include "jobs/input_files.h"

namespace {

constexpr int kLaterPriority = 10;                 // of this thread alone, as Linux has it
constexpr std::chrono::seconds kFindPatience(10);  // for what nobody has asked for in a list before

}  // namespace

void KnownFile::learn(const Look& found, bool is_whole) {
    if (is_whole || !whole) {
        look = found;
        whole = is_whole;
    }
}

Catalog::Catalog(const SharedFolders& folders, Looks& looks) : folders_(folders), looks_(looks) {
    for (unsigned i = 0; i < std::max(1U, std::thread::hardware_concurrency()); ++i) {
        threads_.emplace_back([this] { work(); });
    }
}

void Catalog::close() {
    const std::lock_guard<std::mutex> lock(mutex_);
    ends_ = true;
    changed_.notify_all();
}

Catalog::~Catalog() {
    close();
    for (std::thread& thread : threads_) {
        thread.join();
    }
}

Listing Catalog::list(std::chrono::milliseconds patience) {
    std::string error;
    scan(&error);
    std::unique_lock<std::mutex> lock(mutex_);
    const auto all_known = [this] {
        return ends_ || std::all_of(entries_.begin(), entries_.end(), [](const auto& one) { return one.second.look; });
    };
    changed_.wait_for(lock, patience, all_known);
    Listing found = listing();
    found.error = error;
    found.strips = strips_;
    return found;
}

std::optional<ListedShot> Catalog::find(const std::string& name) {
    const auto search = [this, &name]() -> std::optional<ListedShot> {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (const ListedShot& shot : listing().shots) {
            if (shot.names[0] == name) {
                return shot;
            }
        }
        return {};
    };
    if (auto shot = search()) {
        return shot;
    }
    list(kFindPatience);
    return search();
}

Look Catalog::look_at(const std::string& name, const FileVersion& state) {
    Look look = looks_.look_at(state);
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto entry = entries_.find(name);
    if (entry != entries_.end() && entry->second.state == state) {
        entry->second.learn(look, true);
        tell_of_change();
    }
    return look;
}

void Catalog::scan(std::string* error) {
    std::map<std::string, KnownFile> found;
    std::vector<std::string> strips;
    for (const std::string& name : folders_.names(error)) {
        if (media_type(name) == "image/png") {
            strips.push_back(name);
        }
        if (const auto file = is_picture_or_movie(name) ? folders_.open(name) : std::nullopt) {
            found[name].state = file->state;
        }
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    for (auto& [name, entry] : found) {
        const auto before = entries_.find(name);
        if (before != entries_.end() && before->second.state == entry.state) {
            entry = before->second;
            continue;
        }
        entry.number = ++last_number_;
        if (auto look = looks_.kept(entry.state)) {
            entry.learn(*look, true);
        }
    }
    entries_ = std::move(found);
    strips_ = std::move(strips);
    tell_of_change();
}

// What comes next: first a glance at each file, then a look at each.
KnownFile* Catalog::next(bool* glance, std::string* name) {
    for (const bool first : {true, false}) {
        for (auto& [file, entry] : entries_) {
            if (!entry.taken && (first ? !entry.look : !entry.whole)) {
                *glance = first;
                *name = file;
                return &entry;
            }
        }
    }
    return nullptr;
}

void Catalog::work() {
    // Whoever looks at the page comes before what is found out for later.
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kLaterPriority);
    std::unique_lock<std::mutex> lock(mutex_);
    while (!ends_) {
        bool glance = false;
        std::string name;
        KnownFile* const entry = next(&glance, &name);
        if (!entry) {
            changed_.wait(lock);
            continue;
        }
        entry->taken = true;
        const FileVersion state = entry->state;
        const int64_t number = entry->number;
        lock.unlock();
        const Look look = glance ? glance_at(state) : looks_.look_at(state);
        lock.lock();
        const auto found = entries_.find(name);
        if (found != entries_.end() && found->second.number == number) {
            found->second.learn(look, !glance);
            found->second.taken = false;
        }
        tell_of_change();
    }
}

void Catalog::tell_of_change() {
    listing_.reset();
    changed_.notify_all();
}

const Listing& Catalog::listing() {
    if (!listing_) {
        listing_ = make_listing();
    }
    return *listing_;
}

Listing Catalog::make_listing() const {
    Listing listing;
    std::vector<ShotFile> files;
    std::vector<const KnownFile*> entries;
    for (const auto& [name, entry] : entries_) {
        if (!entry.look) {
            ++listing.pending;
            continue;
        }
        files.push_back({name, entry.look->description});
        entries.push_back(&entry);
    }
    for (const Shot& shot : find_shots(files)) {
        if (shot.kind == ShotKind::kLone && listing.pending > 0) {
            continue;  // its other half may be still to come
        }
        ListedShot listed = {shot.kind, {}, files[shot.files[0]].description, false, shot.why, 0};
        for (const size_t file : shot.files) {
            const Look& look = *entries[file]->look;
            listed.names.push_back(files[file].path);
            listed.damaged = listed.damaged || !look.failure.empty() || !look.description.unread.empty();
            listed.why = look.failure.empty() ? listed.why : look.failure;
            listed.version =
                listed.version * 31 + static_cast<uint64_t>(entries[file]->state.time + entries[file]->state.size);
        }
        listing.shots.push_back(std::move(listed));
    }
    return listing;
}
