// Runs a fuzz target over files, or all files of folders, without a fuzzer: for every compiler, and for one input that
// failed.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

int replay(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    const std::string input{std::istreambuf_iterator<char>(file), {}};
    if (!file) {
        std::fprintf(stderr, "%s: cannot be read\n", path.c_str());
        std::exit(1);
    }
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(input.data()), input.size());
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    int inputs = 0;
    for (int i = 1; i < argc; ++i)
        if (std::filesystem::is_directory(argv[i]))
            for (const auto &entry : std::filesystem::directory_iterator(argv[i]))
                inputs += replay(entry.path());
        else
            inputs += replay(argv[i]);
    std::printf("%d inputs\n", inputs);
    return inputs != 0 ? 0 : 1;
}
