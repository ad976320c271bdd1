#pragma once

#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace tessivox::testing {

/// A folder that goes with the test.
class TestFolder {
public:
    TestFolder() {
        auto name = std::string("/tmp/tessivox-test-XXXXXX");
        path_ = ::mkdtemp(name.data());
    }
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;
    ~TestFolder() { std::filesystem::remove_all(path_); }

    const std::filesystem::path& path() const { return path_; }

    /// A program in the folder; returns its path.
    std::string script(const std::string& name, std::string_view text) const {
        const auto path = path_ / name;
        std::ofstream(path) << text;
        ::chmod(path.c_str(), 0700);
        return path.string();
    }

private:
    std::filesystem::path path_;
};

}  // namespace tessivox::testing
