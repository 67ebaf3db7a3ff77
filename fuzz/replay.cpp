// Runs a fuzz target once on every file of the directories (or files) given,
// without libFuzzer: the seeds and the committed crash inputs become a
// regression test of any build.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void replay(const std::filesystem::path& input) {
    std::ifstream file(input, std::ios::binary);
    const std::vector<char> content{std::istreambuf_iterator<char>(file), {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
}

} // namespace

int main(int argc, char** argv) {
    std::size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path(argv[i]);
        if (std::filesystem::is_directory(path)) {
            for (const auto& entry : std::filesystem::directory_iterator(path)) {
                replay(entry.path());
                ++count;
            }
        } else if (std::filesystem::exists(path)) {
            replay(path);
            ++count;
        }
    }
    std::printf("%zu inputs replayed\n", count);
    return 0;
}
