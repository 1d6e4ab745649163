// What the thread sanitizer cannot know of the HTTP library, which comes compiled and without its
// instrumentation. The library keeps the names of the methods in a local static set. The thread that fills it
// does so under the compiler's guard, which the sanitizer sees; the others read the guard's byte inline,
// which it does not, and so their look-ups in the set seem to race with its making. Accesses that the library
// itself makes are therefore left out; those of the service within the library's threads are not.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions() {
    return "called_from_lib:libcpp-httplib.so\n";
}
