"""A stand-in for `systemctl --user`, where no systemd of a user runs: it knows one directory of units."""
import os
import pathlib

SCRIPT = r"""#!/bin/bash
# Keeps what it knows in a directory: `loaded`, `enabled`, `active`, `result`; writes down what it is asked.
state=$(dirname "$0")/state
printf '%s\n' "$*" >> "$state/calls"
[ "$1" = --user ] || exit 64
[ -e "$state/absent" ] && { echo "Failed to connect to bus: No medium found" >&2; exit 1; }
unit=${@: -1}
file=${XDG_CONFIG_HOME:-$HOME/.config}/systemd/user/$unit
case $2 in
show)
    if grep -qxF "$unit" "$state/loaded"; then echo LoadState=loaded; echo "FragmentPath=$file"; else echo LoadState=not-found; fi
    echo UnitFileState=$(grep -qxF "$unit" "$state/enabled" && echo enabled || echo disabled)
    if grep -qxF "$unit" "$state/active"; then echo ActiveState=active; else echo "ActiveState=$(cat "$state/inactive")"; fi
    echo "Result=$(cat "$state/result")" ;;
daemon-reload) ls "${XDG_CONFIG_HOME:-$HOME/.config}/systemd/user" > "$state/loaded" ;;
enable | start)
    [ -e "$state/refuses-$2" ] && { echo "Failed to $2 unit: not now" >&2; exit 1; }
    grep -qxF "$unit" "$state/loaded" || { echo "Unit $unit not found." >&2; exit 5; }
    [ $2 = enable ] && echo "$unit" >> "$state/enabled" || echo "$unit" >> "$state/active" ;;
*) exit 64 ;;
esac
"""


class UserSystemd:
    """That of a world, found before the real one from now on."""

    def __init__(self, world):
        self.place = world.home / "systemd-for-test"
        self.state = self.place / "state"
        self.state.mkdir(parents=True)
        for name, text in (("calls", ""), ("loaded", ""), ("enabled", ""), ("active", ""), ("inactive", "inactive\n"),
                           ("result", "success\n")):
            (self.state / name).write_text(text)
        (self.place / "systemctl").write_text(SCRIPT)
        (self.place / "systemctl").chmod(0o755)
        world.environment["PATH"] = f"{self.place}:{os.environ['PATH']}"

    def told(self, name):
        return (self.state / name).read_text().splitlines()

    def set(self, name, text=""):
        (self.state / name).write_text(text)

    def clear(self, name):
        (self.state / name).unlink()

    def deeds(self):
        """What it was told to do."""
        return [call for call in self.told("calls") if not call.startswith("--user show")]
