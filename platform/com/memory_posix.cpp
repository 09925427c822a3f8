#include <cstdlib>

#include "platform/com/com.h"

void* CoTaskMemAlloc(SIZE_T size)
{
    return std::malloc(size ? size : 1);
}

void* CoTaskMemRealloc(void* block, SIZE_T size)
{
    if (block && size == 0) {
        std::free(block);
        return nullptr;
    }
    return std::realloc(block, size ? size : 1);
}

void CoTaskMemFree(void* block)
{
    std::free(block);
}
