// A private temporary directory, removed with everything in it at the end of
// the test. Tests that create files or run shell commands work only in here.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

namespace ku_test {

class TempDir {
public:
    TempDir() : path_((std::filesystem::temp_directory_path() / "ku-test-XXXXXX").string())
    {
        if (mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
    }
    ~TempDir() { std::filesystem::remove_all(path_, ignored_); }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    const std::string &path() const { return path_; }
    std::string file(const std::string &name) const { return path_ + "/" + name; }
    // Writes `content` to file(name) and returns the full path.
    std::string write(const std::string &name, const std::string &content) const
    {
        std::ofstream(file(name), std::ios::binary) << content;
        return file(name);
    }

private:
    std::string path_;
    std::error_code ignored_;
};

// Whole file as a string; empty when it cannot be read.
inline std::string read_file(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

}  // namespace ku_test
