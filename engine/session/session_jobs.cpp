#include <new>
#include <utility>
#include <vector>

#include "engine/persist/statements.h"
#include "engine/session/session.h"
#include "engine/session/trace/trace.h"
#include "engine/transfer/storage_processor.h"
#include "platform/com/detached_thread.h"

namespace quorvane {

namespace {

struct ReceiveJob {
    Bstr path;
    Bstr tag;
};

// Makes the file's one row.
void RecordReceiveJob(const Traced& traced, DatabaseSession& session, BSTR path, BSTR tag) noexcept
{
    StatementParameters oldRow;
    oldRow.Text(width::kReceivedPath, path);
    HR_IGNORE(TracedStatement(traced, session.Execute(statements::kDeleteReceiveJob, oldRow)),
              "the file is queued all the same");
    StatementParameters newRow;
    newRow.Text(width::kReceivedPath, path).Text(width::kTag, tag);
    HR_IGNORE(TracedStatement(traced, session.Execute(statements::kAddReceiveJob, newRow)),
              "the file is queued all the same, and lost only if this run ends before it is done");
}

HRESULT ReadReceiveJobs(const Traced& traced, DatabaseSession& session, std::vector<ReceiveJob>& jobs)
{
    Rowset rows;
    HR_TRY_QUIET(TracedStatement(
        traced, session.Query(statements::kReadReceiveJobs, columns::kReadReceiveJobs, rows)));
    HRESULT hr = rows.Step();
    for (; hr == S_OK; hr = rows.Step()) {
        ReceiveJob job;
        HR_TRY(traced, rows.GetText(1, job.path));
        HR_TRY(traced, rows.GetText(2, job.tag));
        jobs.push_back(std::move(job));
    }
    return traced(hr);
}

}  // namespace

HRESULT CSession2::ProcessStorageFile(BSTR Path, BSTR Tag)
{
    const Traced traced{"CSession2::ProcessStorageFile"};
    {
        DatabaseSession session;
        HR_TRY(traced, m_DataSource.OpenSession(session));
        RecordReceiveJob(traced, session, Path, Tag);
    }
    return QueueStorageFile(Path, Tag);
}

HRESULT CSession2::QueueStorageFile(BSTR Path, BSTR Tag) noexcept
{
    const Traced traced{"CSession2::QueueStorageFile"};
    if (!m_pReceivePool)
        return traced(E_UNEXPECTED);
    try {
        return traced(m_pReceivePool->Add(
            std::make_unique<CStorageProcessor>(Bstr::CopyOf(Path), Bstr::CopyOf(Tag), this)));
    } catch (const std::bad_alloc&) {
        return traced(E_OUTOFMEMORY);
    }
}

HRESULT CSession2::ResumeJobs(LONG Flags)
{
    const Traced traced{"CSession2::ResumeJobs"};
    if (Flags != qv_rs_Both)
        return S_OK;
    try {
        std::vector<ReceiveJob> jobs;
        {
            DatabaseSession session;
            HR_TRY(traced, m_DataSource.OpenSession(session));
            HR_TRY_QUIET(ReadReceiveJobs(traced, session, jobs));
        }
        for (auto job = jobs.rbegin(); job != jobs.rend(); ++job)
            HR_IGNORE(traced(QueueStorageFile(job->path.Get(), job->tag.Get())), "the other files go on");
        return S_OK;
    } catch (const std::bad_alloc&) {
        return traced(E_OUTOFMEMORY);
    }
}

HRESULT CSession2::CancelResend(VARIANT)
{
    const Traced traced{"CSession2::CancelResend"};
    if (GatePass pass(m_pCancellations); pass.IsHeld()) {
        auto stop = [this, pass = std::move(pass)] {
            HR_IGNORE(m_pResendPool->Shutdown(), "nobody waits for it");
        };
        if (FAILED(StartDetachedThread(std::move(stop))))
            HR_IGNORE(traced(E_FAIL), "the jobs run on; what was recorded of them goes all the same");
    }
    DatabaseSession session;
    HR_TRY(traced, m_DataSource.OpenSession(session));
    return TracedStatement(traced, session.Execute(statements::kDeleteResendJobs));
}

}  // namespace quorvane
