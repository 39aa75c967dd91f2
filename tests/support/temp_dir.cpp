#include "support/temp_dir.h"

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace ku_test {

TempDir::TempDir()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "ku-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
    path_ = pattern;
}

TempDir::~TempDir()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::file(const std::string &name) const
{
    return path_ + "/" + name;
}

std::string TempDir::write(const std::string &name, const std::string &content) const
{
    const std::string full = file(name);
    std::ofstream out(full, std::ios::binary);
    out << content;
    return full;
}

std::string read_file(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

ScopedChdir::ScopedChdir(const std::string &dir)
{
    char cwd[PATH_MAX];
    if (getcwd(cwd, sizeof cwd) == nullptr || chdir(dir.c_str()) != 0) {
        throw std::runtime_error("chdir failed");
    }
    previous_ = cwd;
}

ScopedChdir::~ScopedChdir()
{
    if (chdir(previous_.c_str()) != 0) {
        std::abort();
    }
}

}  // namespace ku_test
