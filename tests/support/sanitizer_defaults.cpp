// What every test program tells the sanitizers before it starts; the environment's own options come on
// top. Linked into all tests, and without effect where no sanitizer is.

// A damaged header may claim more than there is: that is an allocation that fails, not a fault.
extern "C" const char* __asan_default_options() {
  return "allocator_may_return_null=1:quarantine_size_mb=16";
}

// Where call stacks are taken whole: OpenImageIO 2.4 leaves a text behind whenever libpng jumps out of a
// damaged file.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libOpenImageIO.so\n";
}
