#include "support/temp_dir.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace ku_test {

TempDir::TempDir() : path_((fs::temp_directory_path() / "ku-test-XXXXXX").string())
{
    if (mkdtemp(path_.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed");
    }
}

TempDir::~TempDir()
{
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::string TempDir::write(const std::string &name, const std::string &content) const
{
    std::ofstream(file(name), std::ios::binary) << content;
    return file(name);
}

std::string read_file(const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

ScopedChdir::ScopedChdir(const std::string &dir) : previous_(fs::current_path())
{
    fs::current_path(dir);
}

ScopedChdir::~ScopedChdir()
{
    fs::current_path(previous_);
}

}  // namespace ku_test
