// Runs a fuzz target over files, or all files of folders, without a fuzzer: for every compiler, and for one input that
// failed. `--places=N` as the first argument: each input also cut, and with other octets, at so many of its places.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace {

std::size_t places = 0;
int inputs = 0;

void run(const std::string &input) {
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(input.data()), input.size());
    ++inputs;
}

void replay(const std::filesystem::path &path) {
    std::ifstream file(path, std::ios::binary);
    const std::string input{std::istreambuf_iterator<char>(file), {}};
    std::printf("%s\n", path.c_str()); // the last one is the one that fails
    std::fflush(stdout);
    if (!file)
        std::exit(1);
    run(input);
    const std::size_t count = std::min(places, input.size());
    for (std::size_t i = 0; i != count; ++i) {
        const std::size_t at = input.size() * i / count;
        run(input.substr(0, at));
        for (const char octet : {'\0', '\n', '<', '\x80', '\xff'}) {
            std::string changed = input;
            changed[at] = octet;
            run(changed);
        }
    }
}

} // namespace

int main(int argc, char **argv) {
    constexpr char kPlaces[] = "--places=";
    for (int i = 1; i < argc; ++i)
        if (std::strncmp(argv[i], kPlaces, sizeof kPlaces - 1) == 0)
            places = std::strtoul(argv[i] + sizeof kPlaces - 1, nullptr, 10);
        else if (std::filesystem::is_directory(argv[i]))
            for (const auto &entry : std::filesystem::directory_iterator(argv[i]))
                replay(entry.path());
        else
            replay(argv[i]);
    std::printf("%d inputs\n", inputs);
    return inputs != 0 ? 0 : 1;
}
