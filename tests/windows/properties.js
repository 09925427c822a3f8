// Objects that belong to no session keep what is put into them.
var item = new ActiveXObject("quorvane3.Item");
item.ID = "{5A}";
WScript.Echo("ID: " + item.ID);
item.UnRead = true;
WScript.Echo("UnRead: " + item.UnRead);
item.Action = 20;
WScript.Echo("Action: " + item.Action);

var option = new ActiveXObject("quorvane3.Option.1");
option.Value = 42;
WScript.Echo("Value: " + option.Value);

// The third argument, which is left out, is true: the lock ends with its first use.
var session = new ActiveXObject("quorvane3.Session2");
session.LockItem("AB", "CD");
WScript.Echo("locked: " + session.IsItemLocked("AB", "CD"));
session.UnlockItem("AB", "CD");
WScript.Echo("unlocked: " + session.IsItemLocked("AB", "CD"));
