// A program that copies the file that it is given to where the variable QUORVANE_TEST_VIEWER_COPY says.
#include <cstdlib>
#include <fstream>

int main(int argc, char** argv)
{
    const char* const copy = std::getenv("QUORVANE_TEST_VIEWER_COPY");
    if (argc != 2 || !copy)
        return 2;
    std::ofstream(copy, std::ios::binary) << std::ifstream(argv[1], std::ios::binary).rdbuf();
    return 0;
}
