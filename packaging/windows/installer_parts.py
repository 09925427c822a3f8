#!/usr/bin/env python3
"""What packaging/windows/installer.nsi includes.

    installer_parts.py files STAGE   macros INSTALL and REMOVE, and KILOBYTES, for all files below STAGE
    installer_parts.py mail REG      macros for the keys of a registry file: WRITE_COMPONENT, REMOVE_COMPONENT, and
                                     READ_COMPONENT, which reads where the message store lies; the same for CLIENT, the
                                     keys of mail clients, of which the others are the installer's component

The registry file is packaging/windows/mail_client.reg.in: the installer and who imports that file write the same.
"""
import pathlib
import re
import sys

MACHINE = "HKEY_LOCAL_MACHINE\\"
# A key of everybody's: its default value names the client that is the machine's default.
CLIENTS = "Software\\Clients\\Mail"


def quoted(text):
    return '"' + text.replace("$", "$$").replace('"', '$\\"').replace("@MESSAGE_STORE_PATH@", "$INSTDIR\\msgstore.dll") + '"'


def macro(name, lines):
    return "\n".join([f"!macro {name}", *("  " + line for line in lines), "!macroend"])


def installed(path):
    return quoted("\\".join(("", *path.parts))).replace('"', '"$INSTDIR', 1)


def print_files(stage):
    # In an order of their own, so that the same files make the same installer.
    files = sorted(path.relative_to(stage) for path in stage.rglob("*") if path.is_file())
    folders = sorted({folder for path in files for folder in path.parents})
    install = []
    for folder in folders:
        install.append(f"SetOutPath {installed(folder)}")
        install += [f'File "{stage / path}"' for path in files if path.parent == folder]
    remove = [f"Delete {installed(path)}" for path in files]
    # The installer's own folder has more in it.
    remove += [f"RMDir {installed(folder)}" for folder in reversed(folders) if folder.parts]
    print(macro("INSTALL", install))
    print(macro("REMOVE", remove))
    print(f"!define KILOBYTES {sum((stage / path).stat().st_size for path in files) // 1024}")


def entries(text):
    """Key, name and contents of each value of a registry file."""
    key = None
    for line in text.replace("\r\n", "\n").replace("\\\n", "").splitlines():
        if line.startswith("["):
            key = line.strip("[]")
            if not key.startswith(MACHINE):
                raise ValueError(f"{key} isn't the machine's")
            key = key.removeprefix(MACHINE)
        elif line and not line.startswith(";") and line != "REGEDIT4":
            name, contents = re.fullmatch(r'(@|"[^"]*")=(.+)', line).groups()
            yield key, name.strip('"@'), contents


def written(key, name, contents):
    place = f"HKLM {quoted(key)} {quoted(name)}"
    if contents.startswith('"'):
        return f"WriteRegStr {place} {quoted(contents[1:-1].replace(chr(92) * 2, chr(92)))}"
    kind, number = contents.split(":", 1)
    if kind == "dword":
        return f"WriteRegDWORD {place} 0x{number}"
    if kind == "hex(7)":
        # The file has a byte for each character.
        wide = bytes.fromhex(number.replace(",", "")).decode("ascii").encode("utf-16-le")
        return f"WriteRegMultiStr /REGEDIT5 {place} " + ",".join(f"{byte:02x}" for byte in wide)
    raise ValueError(f"{contents} is of a kind that isn't known here")


def print_keys(name, values):
    remove = [f"DeleteRegValue HKLM {quoted(key)} {quoted(value)}" for key, value, _ in values]
    for key in sorted({key for key, _, _ in values} - {CLIENTS}, key=len, reverse=True):
        # With those above it that nobody else has anything in.
        while key.count("\\") > 1:
            remove.append(f"DeleteRegKey /ifempty HKLM {quoted(key)}")
            key = key.rpartition("\\")[0]
    place = next((key, value) for key, value, contents in values if "@MESSAGE_STORE_PATH@" in contents)
    print(macro(f"WRITE_{name}", [written(*value) for value in values]))
    print(macro(f"REMOVE_{name}", remove))
    print(macro(f"READ_{name} PLACE", [f"ReadRegStr ${{PLACE}} HKLM {quoted(place[0])} {quoted(place[1])}"]))


def print_mail(registry):
    values = list(entries(registry.read_text()))
    of_clients = [value for value in values if value[0].startswith(CLIENTS)]
    print_keys("CLIENT", of_clients)
    print_keys("COMPONENT", [value for value in values if value not in of_clients])


if __name__ == "__main__":
    {"files": print_files, "mail": print_mail}[sys.argv[1]](pathlib.Path(sys.argv[2]).absolute())
