// For tests/packages/windows.sh: a script that does nothing.
