// Runs shell commands: the library's file-system side effects go through the shell.
#pragma once

/// Runs `pszCommand` with /bin/sh and waits for it. 0 when it ran, whatever its exit status; -1 for
/// a null command or when no child could be made or waited for (said on standard error).
int AITCAM_ExecuteShell(const char* pszCommand);
