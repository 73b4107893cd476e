// nq360 space
#include <filesystem>

#include "commands/command.h"
#include "jobs/errors.h"
#include "jobs/replies.h"
#include "jobs/size_text.h"
#include "nq360.h"

namespace {

class Space : public Command {
  public:
    explicit Space(CLI::App& app)
        : Command(app, "space", "Tells how much room is free on the volume that holds a path.") {
        parser().add_option("PATH", path_, "folder, or file that is there or is to be")->required();
        CLI::Option* bytes = parser().add_flag("--bytes", bytes_, "print the number of bytes alone");
        parser().add_flag("--json", json_, "print one JSON object with the bytes")->excludes(bytes);
    }

  private:
    int run() override {
        const unsigned long long free = NQ360_freesize(path_.c_str());
        if (free == 0 && !volume_is_known()) {
            throw CommandError(printable(path_) + ": the volume cannot be asked; does the folder exist?");
        }
        const std::string number = std::to_string(free);
        if (json_) {
            console().print(json_line({{"path", path_}, {"free", free}}));
            return kDone;
        }
        console().print(bytes_ ? number + "\n" : bytes_text(free) + " free (" + number + " bytes)\n");
        return kDone;
    }

    // The library answers 0 both for a full volume and for none.
    bool volume_is_known() const {
        const std::filesystem::path path(path_);
        std::error_code unknown;
        return std::filesystem::is_directory(path, unknown) ||
               std::filesystem::is_directory(path.has_parent_path() ? path.parent_path() : ".", unknown);
    }

    std::string path_;
    bool bytes_ = false;
    bool json_ = false;
};

}  // namespace

std::unique_ptr<Command> make_space(CLI::App& app) {
    return std::make_unique<Space>(app);
}
