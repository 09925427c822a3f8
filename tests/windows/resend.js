// Resends a folder, as `test` names it, to three new members: the whole of it with progress, what is newer than a date,
// and one that is cancelled at its first item.
var library = new ActiveXObject("quorvane3.Library");
var resent = [];
var session = library.Logon(test.Host({
    DatabasePath: test.DatabasePath(),
    ProductCode: "Tests",
    onItemResend: function (item, job) {
        resent.push(job);
        return item.EntryID == test.IgnoredItem();
    }
}));
var folder = session.Folders.Add(test.FolderEntryID(), test.StoreID(), "shared");

function run(start, handlers) {
    var progress = test.Progress(handlers);
    var alone = test.References(progress);
    resent = [];
    start(progress);
    if (!test.WaitUntil(function () { return test.References(progress) == alone; }))
        test.Echo("the job doesn't end");
}

// Progress.
var told = "";
run(function (progress) { folder.Resend("carol", "first", true, progress); }, {
    SetLimits: function (min, max) { told += min + "-" + max; },
    Progress: function (count, total) { told += " " + count + "/" + total; }
});
test.Echo("whole: " + told + " " + resent[0]);

// A restriction by date: new since the end of last August.
told = "";
var newer = test.NewerThan(new Date(2025, 7, 31).getTime());
run(function (progress) { folder.ResendEx("dave", newer, true, "second", progress); }, {
    SetLimits: function (min, max) { told += min + "-" + max; },
    Progress: function (count, total) { told += " " + count + "/" + total; }
});
test.Echo("newer: " + told + " " + resent[0]);

// Cancelled.
var last = 0, all = 0;
run(function (progress) { folder.Resend("eve", "third", true, progress); }, {
    SetLimits: function (min, max) { all = max; },
    Progress: function (count, total) {
        if (count == 1)
            session.CancelResend();
        last = count;
    }
});
test.Echo("cancelled: " + (last >= 1 && last < all));
