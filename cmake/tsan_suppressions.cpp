// Built into every program of a ThreadSanitizer build. open62541 is not instrumented; its client
// and its server each take their own two mutexes in either order on one thread (a call into the
// client against the event loop running a callback), which the deadlock detector reports as an
// inversion. The stack's own locking is not what these builds check. The stack is linked in
// statically, so its frames are known by their source files, which lie in the folder
// open62541-1.4.N of Debian's source package (scripts/build-open62541.sh).
extern "C" const char* __tsan_default_suppressions()
{
    return "deadlock:/open62541-1.4.\n";
}
