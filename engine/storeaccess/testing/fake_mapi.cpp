// A MAPI library for tests: memory, properties and hexadecimal text by their published meaning, and nothing
// of stores or profiles. FAKE_INITIALIZE_RESULT tells its variants apart.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "engine/storeaccess/testing/fake_mapi_state.h"
#include "platform/mapi/mapi.h"
#include "platform/module/module_exports.h"

namespace {

quorvane::testing::FakeMapiState state;

// Stands before every block that MAPI hands out; `more` leads to the blocks that hang on it.
struct Block {
    Block* more;
    alignas(16) unsigned char bytes[1];
};

Block* NewBlock(ULONG size)
{
    auto* const block = static_cast<Block*>(std::malloc(offsetof(Block, bytes) + size));
    if (block)
        block->more = nullptr;
    return block;
}

Block* BlockOf(void* bytes)
{
    return reinterpret_cast<Block*>(static_cast<unsigned char*>(bytes) - offsetof(Block, bytes));
}

int HexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

}  // namespace

QUORVANE_MODULE_EXPORT quorvane::testing::FakeMapiState* FakeState()
{
    return &state;
}

STDAPI MAPIInitialize(LPVOID init)
{
    const auto* const wanted = static_cast<const MAPIINIT_0*>(init);
    const bool known = wanted && wanted->ulVersion == 0 && wanted->ulFlags == MAPI_MULTITHREAD_NOTIFICATIONS;
    if (!known || std::getenv("FAKE_MAPI_REFUSES"))
        return MAPI_E_NOT_INITIALIZED;
    ++state.initialized;
    return FAKE_INITIALIZE_RESULT;
}

STDAPI_(void) MAPIUninitialize()
{
    --state.initialized;
}

STDAPI_(SCODE) MAPIAllocateBuffer(ULONG size, LPVOID* buffer)
{
    Block* const block = state.refusesMemory ? nullptr : NewBlock(size);
    *buffer = block ? block->bytes : nullptr;
    return block ? S_OK : E_OUTOFMEMORY;
}

STDAPI_(SCODE) MAPIAllocateMore(ULONG size, LPVOID object, LPVOID* buffer)
{
    const SCODE result = MAPIAllocateBuffer(size, buffer);
    if (result == S_OK) {
        BlockOf(*buffer)->more = BlockOf(object)->more;
        BlockOf(object)->more = BlockOf(*buffer);
    }
    return result;
}

STDAPI_(ULONG) MAPIFreeBuffer(LPVOID buffer)
{
    for (Block* block = buffer ? BlockOf(buffer) : nullptr; block;) {
        Block* const next = block->more;
        std::free(block);
        block = next;
    }
    return 0;
}

STDAPI_(LPSPropValue) PpropFindProp(LPSPropValue values, ULONG count, ULONG tag)
{
    for (ULONG i = 0; values && i < count; ++i) {
        if (values[i].ulPropTag == tag)
            return &values[i];
    }
    return nullptr;
}

STDAPI HrGetOneProp(LPMAPIPROP object, ULONG tag, LPSPropValue* value)
{
    SPropTagArray tags = {1, {tag}};
    ULONG count = 0;
    LPSPropValue values = nullptr;
    const HRESULT hr = object->GetProps(&tags, 0, &count, &values);
    if (FAILED(hr))
        return hr;
    if (count != 1 || PROP_TYPE(values->ulPropTag) == PT_ERROR) {
        MAPIFreeBuffer(values);
        return MAPI_E_NOT_FOUND;
    }
    *value = values;
    return S_OK;
}

STDAPI_(void) FreeProws(LPSRowSet rows)
{
    for (ULONG i = 0; rows && i < rows->cRows; ++i)
        MAPIFreeBuffer(rows->aRow[i].lpProps);
    MAPIFreeBuffer(rows);
}

STDAPI_(void) HexFromBin(LPBYTE bytes, INT count, LPTSTR text)
{
    for (INT i = 0; i < count; ++i) {
        *text++ = "0123456789ABCDEF"[bytes[i] >> 4];
        *text++ = "0123456789ABCDEF"[bytes[i] & 15];
    }
    *text = '\0';
}

STDAPI_(BOOL) FBinFromHex(LPTSTR text, LPBYTE bytes)
{
    for (; text[0]; text += 2) {
        const int high = HexValue(text[0]);
        const int low = high < 0 ? -1 : HexValue(text[1]);
        if (low < 0)
            return FALSE;
        *bytes++ = static_cast<BYTE>(16 * high + low);
    }
    return TRUE;
}

// Answers by the environment: FAKE_COMPONENT_FOR is the qualifier that has a path ("-" for none at all
// given), FAKE_COMPONENT_PATH the path. With FAKE_COMPONENT_REFUSES the path is given, and FALSE with it.
// Each question goes into the file FAKE_COMPONENT_LOG.
#ifdef FAKE_FINDS_COMPONENT
extern "C" BOOL FGetComponentPath(LPSTR component, LPSTR qualifier, LPSTR path, DWORD capacity, BOOL install)
{
    const char* const asked = qualifier ? qualifier : "-";
    if (const char* const log = std::getenv("FAKE_COMPONENT_LOG")) {
        if (std::FILE* const file = std::fopen(log, "a")) {
            std::fprintf(file, "%s/%s/%u/%d ", component, asked, static_cast<unsigned>(capacity), install);
            std::fclose(file);
        }
    }
    const char* const known = std::getenv("FAKE_COMPONENT_FOR");
    const char* const answer = std::getenv("FAKE_COMPONENT_PATH");
    if (!known || std::strcmp(known, asked) != 0)
        return FALSE;
    std::snprintf(path, capacity, "%s", answer ? answer : "");
    return std::getenv("FAKE_COMPONENT_REFUSES") ? FALSE : TRUE;
}
#endif
