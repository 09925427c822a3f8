// Shows a message in its form. Arguments: the identifiers of a folder, its store and a message in it.
var library = new ActiveXObject("quorvane3.Library");
var session = library.Logon(new ActiveXObject("QuorvaneTests.Host"));
var storeId = WScript.Arguments.Item(1);
session.ImportItem("{5B}", WScript.Arguments.Item(2), storeId);
var item = session.GetItemFromID("{5B}");
try {
    item.Display(true, 0);
} catch (e) {
    WScript.Echo("of a folder that isn't shared: " + (e.number & 0xFFFF));
}
session.Folders.Add(WScript.Arguments.Item(0), storeId);
item.Display(true, 0);
WScript.Echo("displayed: " + item.ID);
