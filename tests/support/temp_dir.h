// A private temporary directory, removed with everything in it at the end of
// the test. Tests that create files or run shell commands work only in here.
#pragma once

#include <string>

namespace ku_test {

class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    const std::string &path() const { return path_; }
    std::string file(const std::string &name) const { return path_ + "/" + name; }
    // Writes `content` to file(name) and returns the full path.
    std::string write(const std::string &name, const std::string &content) const;

private:
    std::string path_;
};

// Whole file as a string; empty when it cannot be read.
std::string read_file(const std::string &path);

// Switches the working directory to `dir` for the lifetime of the object.
class ScopedChdir {
public:
    explicit ScopedChdir(const std::string &dir);
    ~ScopedChdir();

private:
    std::string previous_;
};

}  // namespace ku_test
