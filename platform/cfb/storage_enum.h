// platform/cfb/storage_enum.h: IEnumSTATSTG on the elements of a storage.
#ifndef QUORVANE_PLATFORM_CFB_STORAGE_ENUM_H_
#define QUORVANE_PLATFORM_CFB_STORAGE_ENUM_H_

#include <optional>
#include <utility>

#include "platform/cfb/root_file.h"
#include "platform/com/com_object.h"

namespace quorvane::cfb {

// Goes through the names in their order and remembers the last one, so that elements may be made and
// destroyed between two calls: what is there when its turn comes is told. Doesn't keep the storage open:
// STG_E_REVERTED once it is released. A damaged storage ends with STG_E_DOCFILECORRUPT in place of S_FALSE
// after the elements that can be reached. Any thread may call.
class CStorageEnum final : public ComObject<CStorageEnum, IEnumSTATSTG> {
public:
    CStorageEnum(std::shared_ptr<RootFile> root, OpenElementPtr storage,
                 std::optional<ElementName> last) noexcept
        : m_root(std::move(root)), m_storage(std::move(storage)), m_last(last)
    {}
    ~CStorageEnum() { m_root->Drop(std::move(m_storage)); }

    HRESULT STDMETHODCALLTYPE Next(ULONG count, STATSTG* elements, ULONG* fetched) override;
    HRESULT STDMETHODCALLTYPE Skip(ULONG count) override;
    HRESULT STDMETHODCALLTYPE Reset() override;
    HRESULT STDMETHODCALLTYPE Clone(IEnumSTATSTG** enumerator) override;

private:
    [[nodiscard]] HRESULT Step(CompoundFile& file, STATSTG* stat);

    const std::shared_ptr<RootFile> m_root;
    OpenElementPtr m_storage;
    // Touched under the file's lock.
    std::optional<ElementName> m_last;
    CompoundFile::Cursor m_cursor;
};

}  // namespace quorvane::cfb

#endif  // QUORVANE_PLATFORM_CFB_STORAGE_ENUM_H_
