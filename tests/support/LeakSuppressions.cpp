// Read by LeakSanitizer where the tests are built with it: leaks that are another library's own.

extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libx265.so\n" // its encoder keeps about a kilobyte of each picture
                               // Where memory runs out within them:
           "leak:heif_context_alloc\n"
           "leak:libdav1d.so\n";
}
