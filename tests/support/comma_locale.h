// A locale that writes 1,5 for one and a half.
#pragma once

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "support/command.h"
#include "support/temp_dir.h"

namespace test_support {

// While it lives, the whole process writes numbers with a decimal comma. The locale is built in a folder of its
// own from these few lines, since few machines have such a one installed.
class CommaLocale {
  public:
    CommaLocale() : previous_(std::setlocale(LC_NUMERIC, nullptr)) {
        const std::string characters = dir_.file("characters", text("<code_set_name> TINY\n"
                                                                    "<escape_char> /\n"
                                                                    "CHARMAP\n"
                                                                    "<U002C> /x2c COMMA\n"
                                                                    "<U002E> /x2e FULL STOP\n"
                                                                    "END CHARMAP\n"));
        const std::string numbers = dir_.file("numbers", text("LC_NUMERIC\n"
                                                              "decimal_point \"<U002C>\"\n"
                                                              "thousands_sep \"<U002E>\"\n"
                                                              "grouping 3;3\n"
                                                              "END LC_NUMERIC\n"));
        // Complains about the categories that are not there, and makes the one that is.
        run_command({"localedef", "--no-archive", "--force", "-f", characters, "-i", numbers, dir_.file("comma")});
        setenv("LOCPATH", dir_.path().c_str(), 1);
        char number[8] = {};
        if (!std::setlocale(LC_NUMERIC, "comma") || std::snprintf(number, sizeof number, "%.1f", 1.5) != 3 ||
            std::string(number) != "1,5") {
            throw std::runtime_error("cannot make a locale with a decimal comma");
        }
    }
    ~CommaLocale() {
        std::setlocale(LC_NUMERIC, previous_.c_str());
        unsetenv("LOCPATH");
    }
    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;

  private:
    std::string previous_;
    TempDir dir_;
};

}  // namespace test_support
