// A host in JScript: shares a folder, tells a new member of it, and names the package that this makes.
//
//   cscript //nologo host.js FOLDER STORE ID
//
// FOLDER and STORE are the identifiers of the folder and its message store, in hexadecimal text; ID is what all members
// of the folder call it. The engine is registered (regsvr32 quorvane3.dll), and so is the component beside this script
// (callbacks.cpp), which answers the engine's calls: a script's own object can't say that it is the callback interface.
var library = new ActiveXObject("quorvane3.Library");
var session = library.Logon(new ActiveXObject("QuorvaneSample.Callbacks"));
var args = WScript.Arguments;

var folder = session.Folders.Add(args.Item(0), args.Item(1), args.Item(2));
folder.CustomInfo = "Notes";
WScript.Echo("shared: " + folder.ID);

folder.Send("bob");
var packages = session.StorageFiles;
for (var i = 1; i <= packages.Count; i++) {
    var fileSystem = new ActiveXObject("Scripting.FileSystemObject");
    WScript.Echo("package for " + packages.Item(i).Recipients + ": " +
                 (fileSystem.FileExists(packages.Item(i).Path) ? "it is there" : "it is gone"));
}
