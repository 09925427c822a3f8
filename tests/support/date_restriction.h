// tests/support/date_restriction.h: a restriction of a resend, and the dates that it goes by.
#ifndef QUORVANE_TESTS_SUPPORT_DATE_RESTRICTION_H_
#define QUORVANE_TESTS_SUPPORT_DATE_RESTRICTION_H_

#include <thread>

#include "quorvane3/quorvane3.h"
#include "tests/support/test_directory.h"

namespace quorvane::test {

// Leaves the mails that came after a moment.
class DateRestriction final : public RestrictHandler {
public:
    explicit DateRestriction(FILETIME after) : after_(after) {}

    HRESULT RestrictTable(IDispatch* table) override
    {
        thread = std::this_thread::get_id();
        ComPtr<IItemsCol> items;
        Check(QueryFor(table, items), "ask for the table");
        ComPtr<IUnknown> raw;
        Check(items->get_RawTable(raw.Put()), "ask for the table");
        ComPtr<IMAPITable> contents;
        if (FAILED(raw.As(contents)))
            return E_NOINTERFACE;
        reachedTable = true;
        SPropValue value{};
        value.ulPropTag = PR_MESSAGE_DELIVERY_TIME;
        value.Value.ft = after_;
        SRestriction restriction{};
        restriction.rt = RES_PROPERTY;
        restriction.res.resProperty = {RELOP_GT, PR_MESSAGE_DELIVERY_TIME, &value};
        return contents->Restrict(&restriction, 0);
    }

    std::thread::id thread;
    bool reachedTable = false;

private:
    const FILETIME after_;
};

}  // namespace quorvane::test

#endif  // QUORVANE_TESTS_SUPPORT_DATE_RESTRICTION_H_
