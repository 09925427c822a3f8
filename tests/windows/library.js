// Makes the library of the program identifier that the first argument names, and calls what needs no logon. Ends with
// 3 if there is no such library.
var library;
try {
    library = new ActiveXObject(WScript.Arguments.Item(0));
} catch (e) {
    WScript.Quit(3);
}
try {
    var session = library.Session;
    WScript.Echo("Session: there is one");
} catch (e) {
    WScript.Echo("Session: " + e.description);
}
library.ForceLogoff();
WScript.Echo("ForceLogoff: done");
library.Test();
WScript.Echo("Test: done");
