// Built into every program of a ThreadSanitizer build. open62541 is not instrumented; its client
// and its server each take their own two mutexes in either order on one thread (a call into the
// client against the event loop running a callback), which the deadlock detector reports as an
// inversion. The stack's own locking is not what these builds check.
extern "C" const char* __tsan_default_suppressions()
{
    return "deadlock:libopen62541.so\n";
}
