#ifndef TESTS_SUPPORT_OPENSSLFOLDER_HPP
#define TESTS_SUPPORT_OPENSSLFOLDER_HPP

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include <stdlib.h>

namespace hosttest {

// A scratch folder in which the openssl command line tool checks our work
// independently; removed with the object.
class OpensslFolder {
public:
    using Bytes = std::vector<unsigned char>;

    static bool available() { return std::system("command -v openssl >/dev/null 2>&1") == 0; }

    OpensslFolder() {
        char pattern[] = "/tmp/p15kit-openssl-XXXXXX";
        if (mkdtemp(pattern) == nullptr) {
            throw std::runtime_error("cannot create a scratch folder for openssl");
        }
        dir_ = pattern;
    }
    ~OpensslFolder() { std::filesystem::remove_all(dir_); }
    OpensslFolder(const OpensslFolder&) = delete;
    OpensslFolder& operator=(const OpensslFolder&) = delete;

    std::string path(const std::string& name) const { return dir_ + "/" + name; }

    template <class Range> void write(const std::string& name, const Range& bytes) const {
        std::ofstream(path(name), std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }

    Bytes read(const std::string& name) const {
        std::ifstream in(path(name), std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }

    // True when openssl, run in the folder, succeeds; its complaints go to
    // the test output.
    bool run(const std::string& arguments) const {
        return std::system(("cd '" + dir_ + "' && openssl " + arguments).c_str()) == 0;
    }

private:
    std::string dir_;
};

} // namespace hosttest

#endif
