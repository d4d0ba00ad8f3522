// AITCAM_ExecuteShell, for those who make thousands of lives: its commands copy the listing, which is
// then read itself, and remove files that nobody looks at.
extern "C" int __wrap__Z19AITCAM_ExecuteShellPKc(const char*) {
    return 0;
}
