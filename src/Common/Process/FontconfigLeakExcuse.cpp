// Linked into the programs that paint text (the vzk host, and the tests and
// fuzzers that run text overlays). Fontconfig keeps its font patterns in
// process-wide caches that it never frees, and the plug-in cannot drop them
// while Pango still holds fonts, so the leak checker of a sanitizer build would
// report them at every exit. Only stacks that pass through fontconfig are
// excused; in other builds nothing calls this.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:libfontconfig.so\n";
}

// The excuse goes unmentioned: a program's error output stays its own.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_options() {
  return "print_suppressions=0";
}
