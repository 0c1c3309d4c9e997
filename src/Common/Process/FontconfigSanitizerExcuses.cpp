// Linked into the programs that paint text (the vzk host, and the tests and
// fuzzers that run text overlays). Only stacks that pass through fontconfig
// are excused; in builds without a sanitizer nothing calls these.

// Fontconfig keeps its font patterns in process-wide caches that it never
// frees, and the plug-in cannot drop them while Pango still holds fonts, so
// the leak checker would report them at every exit.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:libfontconfig.so\n";
}

// The excuse goes unmentioned: a program's error output stays its own.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_options() {
  return "print_suppressions=0";
}

// Pango starts fontconfig in a thread of its own and waits for it through
// GLib, whose locks the thread sanitizer does not see, so fontconfig's own
// memory would look touched by two threads with nothing ordering them.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_suppressions() {
  return "race:libfontconfig.so\n";
}
