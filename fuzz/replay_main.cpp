// A plain main() for the fuzz targets, so any compiler can run a corpus:
// every file named on the command line, and every file in every directory
// named, is handed to the target once. Used by ctest to replay the checked-in
// corpus as a regression suite.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv)
{
    std::vector<std::filesystem::path> files;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path arg(argv[i]);
        std::error_code ec;
        if (std::filesystem::is_directory(arg, ec)) {
            for (const auto& entry : std::filesystem::directory_iterator(arg, ec))
                if (entry.is_regular_file())
                    files.push_back(entry.path());
        } else {
            files.push_back(arg);
        }
    }
    std::sort(files.begin(), files.end());
    size_t replayed = 0;
    for (const auto& path : files) {
        std::ifstream in(path, std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "cannot read %s\n", path.c_str());
            return 2;
        }
        const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        ++replayed;
    }
    std::printf("replayed %zu inputs\n", replayed);
    // An empty corpus would make the regression suite pass without testing
    // anything.
    return replayed > 0 ? 0 : 1;
}
