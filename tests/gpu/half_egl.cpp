// An EGL without eglGetCurrentContext.
extern "C" void* eglGetProcAddress(const char*);

void* eglGetProcAddress(const char*) {
  return nullptr;
}
