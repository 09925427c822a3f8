// Copies of notifications, and sinks that are called on the thread that made them.
#include <deque>
#include <memory>
#include <mutex>

#include "msgstore/util/guarded.h"
#include "msgstore/util/memory.h"
#include "msgstore/util/value_copy.h"
#include "platform/com/com_object.h"
#include "platform/com/per_thread.h"

namespace quorvane {
namespace {

template <class T>
T* CopyBytes(BlockWriter& writer, ULONG size, const T* bytes) noexcept
{
    return static_cast<T*>(writer.Copy(bytes, size));
}

LPMAPIERROR CopyError(BlockWriter& writer, const MAPIERROR* error, ULONG flags) noexcept
{
    if (!error)
        return nullptr;
    MAPIERROR copy = *error;
    const auto text = [&](LPTSTR source) {
        if ((flags & MAPI_UNICODE) == 0)
            return writer.CopyText(static_cast<const char*>(source));
        return reinterpret_cast<LPTSTR>(writer.CopyText(reinterpret_cast<const WCHAR*>(source)));
    };
    auto* const place = static_cast<LPMAPIERROR>(writer.Take(sizeof(MAPIERROR)));
    copy.lpszError = text(error->lpszError);
    copy.lpszComponent = text(error->lpszComponent);
    if (place)
        *place = copy;
    return place;
}

LPTSTR CopyClass(BlockWriter& writer, const NEWMAIL_NOTIFICATION& mail) noexcept
{
    if ((mail.ulFlags & MAPI_UNICODE) == 0)
        return writer.CopyText(static_cast<const char*>(mail.lpszMessageClass));
    return reinterpret_cast<LPTSTR>(writer.CopyText(reinterpret_cast<const WCHAR*>(mail.lpszMessageClass)));
}

HRESULT CopyTable(BlockWriter& writer, const TABLE_NOTIFICATION& source, TABLE_NOTIFICATION& copy) noexcept
{
    QV_RETURN_IF_FAILED(writer.CopyPayload(source.propIndex, copy.propIndex));
    QV_RETURN_IF_FAILED(writer.CopyPayload(source.propPrior, copy.propPrior));
    const auto row = writer.CopyValues(source.row.cValues, source.row.lpProps);
    copy.row.lpProps = row.values;
    return row.result;
}

void CopyObject(BlockWriter& writer, const OBJECT_NOTIFICATION& source, OBJECT_NOTIFICATION& copy) noexcept
{
    copy.lpEntryID = CopyBytes(writer, source.cbEntryID, source.lpEntryID);
    copy.lpParentID = CopyBytes(writer, source.cbParentID, source.lpParentID);
    copy.lpOldID = CopyBytes(writer, source.cbOldID, source.lpOldID);
    copy.lpOldParentID = CopyBytes(writer, source.cbOldParentID, source.lpOldParentID);
    if (source.lpPropTagArray) {
        const std::uint64_t size = CbNewSPropTagArray(std::uint64_t{source.lpPropTagArray->cValues});
        copy.lpPropTagArray = static_cast<LPSPropTagArray>(writer.Copy(source.lpPropTagArray, size));
    }
}

HRESULT CopyInfo(BlockWriter& writer, const NOTIFICATION& source, NOTIFICATION& copy) noexcept
{
    switch (source.ulEventType) {
        case fnevCriticalError:
            copy.info.err.lpEntryID = CopyBytes(writer, source.info.err.cbEntryID, source.info.err.lpEntryID);
            copy.info.err.lpMAPIError =
                CopyError(writer, source.info.err.lpMAPIError, source.info.err.ulFlags);
            return S_OK;
        case fnevNewMail:
            copy.info.newmail.lpEntryID =
                CopyBytes(writer, source.info.newmail.cbEntryID, source.info.newmail.lpEntryID);
            copy.info.newmail.lpParentID =
                CopyBytes(writer, source.info.newmail.cbParentID, source.info.newmail.lpParentID);
            copy.info.newmail.lpszMessageClass = CopyClass(writer, source.info.newmail);
            return S_OK;
        case fnevObjectCreated:
        case fnevObjectDeleted:
        case fnevObjectModified:
        case fnevObjectMoved:
        case fnevObjectCopied:
        case fnevSearchComplete:
            CopyObject(writer, source.info.obj, copy.info.obj);
            return S_OK;
        case fnevTableModified:
            return CopyTable(writer, source.info.tab, copy.info.tab);
        case fnevStatusObjectModified: {
            copy.info.statobj.lpEntryID =
                CopyBytes(writer, source.info.statobj.cbEntryID, source.info.statobj.lpEntryID);
            const auto row = writer.CopyValues(source.info.statobj.cValues, source.info.statobj.lpPropVals);
            copy.info.statobj.lpPropVals = row.values;
            return row.result;
        }
        case fnevExtended:
            copy.info.ext.pbEventParameters =
                CopyBytes(writer, source.info.ext.cb, source.info.ext.pbEventParameters);
            return S_OK;
        default:
            return MAPI_E_INVALID_PARAMETER;
    }
}

HRESULT CopyNotifications(BlockWriter& writer, ULONG count, const NOTIFICATION* source) noexcept
{
    auto* const copies =
        static_cast<LPNOTIFICATION>(writer.Copy(source, std::uint64_t{count} * sizeof(NOTIFICATION)));
    for (ULONG i = 0; i < count; ++i) {
        NOTIFICATION copy = source[i];
        QV_RETURN_IF_FAILED(CopyInfo(writer, source[i], copy));
        if (copies)
            copies[i] = copy;
    }
    return S_OK;
}

struct Batch {
    ComPtr<IMAPIAdviseSink> sink;
    ULONG count = 0;
    MapiBuffer<NOTIFICATION> notifications;
};

// What waits for one thread. Shared by the thread and by the sinks that deliver to it.
class ThreadQueue {
public:
    void Push(Batch batch)
    {
        const std::lock_guard lock(mutex_);
        batches_.push_back(std::move(batch));
    }
    bool Pop(Batch& batch)
    {
        const std::lock_guard lock(mutex_);
        if (batches_.empty())
            return false;
        batch = std::move(batches_.front());
        batches_.pop_front();
        return true;
    }

private:
    std::mutex mutex_;
    std::deque<Batch> batches_;
};

struct OwnedQueue {
    std::shared_ptr<ThreadQueue> queue = std::make_shared<ThreadQueue>();
};

// Throws std::bad_alloc.
std::shared_ptr<ThreadQueue>& OwnQueue()
{
    static PerThread<OwnedQueue> queues;
    return queues.Get().queue;
}

HRESULT CopyBatch(ULONG count, LPNOTIFICATION source, Batch& batch) noexcept
{
    ULONG size = 0;
    QV_RETURN_IF_FAILED(ScCountNotifications(static_cast<INT>(count), source, &size));
    QV_RETURN_IF_FAILED(MAPIAllocateBuffer(size, reinterpret_cast<void**>(batch.notifications.Put())));
    batch.count = count;
    return ScCopyNotifications(static_cast<INT>(count), source, batch.notifications.Get(), nullptr);
}

// Calls its sink on the thread that made it: at once when it's called there, else when that thread
// dispatches its notifications.
class CThreadSink final : public ComObject<CThreadSink, IMAPIAdviseSink> {
public:
    CThreadSink(IMAPIAdviseSink* sink, std::shared_ptr<ThreadQueue> queue)
        : m_sink(sink), m_queue(std::move(queue))
    {}

    ULONG STDMETHODCALLTYPE OnNotify(ULONG count, LPNOTIFICATION notifications) override
    {
        const HRESULT hr = Guarded([&]() -> HRESULT {
            if (OwnQueue() == m_queue)
                return static_cast<HRESULT>(m_sink->OnNotify(count, notifications));
            Batch batch;
            batch.sink = m_sink;
            QV_RETURN_IF_FAILED(CopyBatch(count, notifications, batch));
            m_queue->Push(std::move(batch));
            return S_OK;
        });
        return static_cast<ULONG>(hr);
    }

private:
    ComPtr<IMAPIAdviseSink> m_sink;
    std::shared_ptr<ThreadQueue> m_queue;
};

}  // namespace
}  // namespace quorvane

using namespace quorvane;

STDAPI_(SCODE) ScCountNotifications(INT count, LPNOTIFICATION notifications, ULONG* size)
{
    if (count < 0 || (count > 0 && !notifications) || !size)
        return MAPI_E_INVALID_PARAMETER;
    BlockWriter counter(nullptr);
    QV_RETURN_IF_FAILED(CopyNotifications(counter, static_cast<ULONG>(count), notifications));
    return counter.GiveSize(size);
}

STDAPI_(SCODE) ScCopyNotifications(INT count, LPNOTIFICATION notifications, LPVOID target, ULONG* size)
{
    if (count < 0 || (count > 0 && !notifications) || !target)
        return MAPI_E_INVALID_PARAMETER;
    BlockWriter writer(target);
    QV_RETURN_IF_FAILED(CopyNotifications(writer, static_cast<ULONG>(count), notifications));
    return size ? writer.GiveSize(size) : S_OK;
}

STDAPI HrThisThreadAdviseSink(LPMAPIADVISESINK sink, LPMAPIADVISESINK* wrapped)
{
    if (!sink || !wrapped)
        return MAPI_E_INVALID_PARAMETER;
    *wrapped = nullptr;
    return Guarded([&] {
        auto made = MakeComObject<CThreadSink>(sink, OwnQueue());
        *wrapped = made.Detach();
        return *wrapped ? S_OK : E_OUTOFMEMORY;
    });
}

STDAPI HrDispatchNotifications(ULONG)
{
    return Guarded([] {
        for (Batch batch; OwnQueue()->Pop(batch); batch = Batch{})
            batch.sink->OnNotify(batch.count, batch.notifications.Get());
        return S_OK;
    });
}
