// Where files are until they are whole: a folder among a batch's own ones, which goes with its owner.
#pragma once

#include <string>

class WorkFolder {
  public:
    // DIR/.nq360/NAME. Throws CommandError when it cannot be made.
    WorkFolder(const std::string& to, const std::string& name);
    ~WorkFolder();
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;

    // A file for this output. Short, whatever that is called.
    std::string file(const std::string& name, const std::string& output) const;

  private:
    std::string folder_;
};

// Those whose names begin so.
void remove_work_folders(const std::string& to, const std::string& beginning);
