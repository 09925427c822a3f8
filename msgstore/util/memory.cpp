#include "msgstore/util/memory.h"

#include <cstdlib>
#include <limits>
#include <new>

namespace quorvane {
namespace {

// Stands before every block that is handed out; keeps the block aligned for any type.
struct alignas(std::max_align_t) BlockHeader {
    BlockHeader* next;  // the rest of the chain, most recent first behind the head
};

BlockHeader* HeaderOf(void* block) noexcept
{
    return reinterpret_cast<BlockHeader*>(static_cast<BYTE*>(block) - sizeof(BlockHeader));
}

BlockHeader* NewBlock(ULONG size) noexcept
{
    auto* const header = static_cast<BlockHeader*>(std::malloc(sizeof(BlockHeader) + size));
    if (header)
        header->next = nullptr;
    return header;
}

void* BlockOf(BlockHeader* header) noexcept
{
    return reinterpret_cast<BYTE*>(header) + sizeof(BlockHeader);
}

bool FitsUlong(std::size_t size) noexcept
{
    return size <= std::numeric_limits<ULONG>::max();
}

// The default allocator as IMalloc: one object for the process, never freed.
class CDefaultMalloc final : public IMalloc {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        if (!object)
            return E_POINTER;
        const bool known = IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, IID_IMalloc);
        *object = known ? this : nullptr;
        return known ? S_OK : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    void* STDMETHODCALLTYPE Alloc(SIZE_T size) override { return NewSized(size); }
    void* STDMETHODCALLTYPE Realloc(void* block, SIZE_T size) override;
    void STDMETHODCALLTYPE Free(void* block) override
    {
        if (block)
            std::free(SizedHeader::Of(block));
    }
    SIZE_T STDMETHODCALLTYPE GetSize(void* block) override
    {
        return block ? SizedHeader::Of(block)->size : static_cast<SIZE_T>(-1);
    }
    int STDMETHODCALLTYPE DidAlloc(void*) override { return -1; }
    void STDMETHODCALLTYPE HeapMinimize() override {}

private:
    struct alignas(std::max_align_t) SizedHeader {
        SIZE_T size;
        static SizedHeader* Of(void* block) noexcept
        {
            return reinterpret_cast<SizedHeader*>(static_cast<BYTE*>(block) - sizeof(SizedHeader));
        }
    };
    static void* NewSized(SIZE_T size) noexcept { return Resize(nullptr, size); }
    static void* Resize(SizedHeader* old, SIZE_T size) noexcept
    {
        if (size > std::numeric_limits<SIZE_T>::max() - sizeof(SizedHeader))
            return nullptr;
        auto* const header = static_cast<SizedHeader*>(std::realloc(old, sizeof(SizedHeader) + size));
        if (!header)
            return nullptr;
        header->size = size;
        return reinterpret_cast<BYTE*>(header) + sizeof(SizedHeader);
    }
};

void* CDefaultMalloc::Realloc(void* block, SIZE_T size)
{
    if (block && size == 0) {
        Free(block);
        return nullptr;
    }
    return Resize(block ? SizedHeader::Of(block) : nullptr, size);
}

}  // namespace

void* MapiAllocator::Allocate(std::size_t size) const noexcept
{
    void* block = nullptr;
    if (!FitsUlong(size) || FAILED(allocate(static_cast<ULONG>(size), &block)))
        return nullptr;
    return block;
}

void* MapiAllocator::AllocateMore(std::size_t size, void* root) const noexcept
{
    void* block = nullptr;
    if (!FitsUlong(size) || FAILED(allocateMore(static_cast<ULONG>(size), root, &block)))
        return nullptr;
    return block;
}

}  // namespace quorvane

using namespace quorvane;

STDAPI_(SCODE) MAPIAllocateBuffer(ULONG size, LPVOID* buffer)
{
    if (!buffer)
        return MAPI_E_INVALID_PARAMETER;
    BlockHeader* const header = NewBlock(size);
    *buffer = header ? BlockOf(header) : nullptr;
    return header ? S_OK : MAPI_E_NOT_ENOUGH_MEMORY;
}

STDAPI_(SCODE) MAPIAllocateMore(ULONG size, LPVOID object, LPVOID* buffer)
{
    if (!buffer)
        return MAPI_E_INVALID_PARAMETER;
    if (!object)
        return MAPIAllocateBuffer(size, buffer);
    BlockHeader* const header = NewBlock(size);
    *buffer = header ? BlockOf(header) : nullptr;
    if (!header)
        return MAPI_E_NOT_ENOUGH_MEMORY;
    BlockHeader* const head = HeaderOf(object);
    header->next = head->next;
    head->next = header;
    return S_OK;
}

STDAPI_(ULONG) MAPIFreeBuffer(LPVOID buffer)
{
    if (!buffer)
        return 0;
    for (BlockHeader* block = HeaderOf(buffer); block;) {
        BlockHeader* const next = block->next;
        std::free(block);
        block = next;
    }
    return 0;
}

STDAPI_(LPMALLOC) MAPIGetDefaultMalloc()
{
    static CDefaultMalloc allocator;
    return &allocator;
}
