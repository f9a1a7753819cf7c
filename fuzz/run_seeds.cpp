// Gives a fuzz target the files of a folder, each once, without the fuzzer.
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* in_pData, std::size_t in_uiSize);

int main(int in_iArguments, char** in_ppArguments)
{
    int iFiles = 0;
    for (int i = 1; i < in_iArguments; ++i)
    {
        for (const auto& entry : std::filesystem::directory_iterator(in_ppArguments[i]))
        {
            std::cout << entry.path().filename().string() << std::endl;
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> vBytes{std::istreambuf_iterator<char>(file), {}};
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(vBytes.data()), vBytes.size());
            ++iFiles;
        }
    }
    if (iFiles == 0)
    {
        std::cerr << "expected folders with at least one file" << std::endl;
        std::quick_exit(1);
    }
    std::quick_exit(0);  // a target's own threads and static objects live on, as under the fuzzer
}
