#include "bench/gpu/gl_context.h"

#include <type_traits>

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <dlfcn.h>

namespace support {

namespace {

// Makes a context current and returns the proc-address function, or null with `why` set.
PFNEGLGETPROCADDRESSPROC open_context(std::string* why) {
  const auto fail = [why](const char* text) {
    *why = text;
    return PFNEGLGETPROCADDRESSPROC(nullptr);
  };
  void* egl = dlopen("libEGL.so.1", RTLD_NOW | RTLD_GLOBAL);
  if (!egl) return fail("no libEGL.so.1");
  const auto address = reinterpret_cast<PFNEGLGETPROCADDRESSPROC>(dlsym(egl, "eglGetProcAddress"));
  if (!address) return fail("libEGL.so.1 has no eglGetProcAddress");
  const auto find = [address](auto& function, const char* name) {
    function = reinterpret_cast<std::decay_t<decltype(function)>>(address(name));
    return function != nullptr;
  };
  PFNEGLGETPLATFORMDISPLAYPROC get_platform_display = nullptr;
  PFNEGLINITIALIZEPROC initialize = nullptr;
  PFNEGLBINDAPIPROC bind_api = nullptr;
  PFNEGLCHOOSECONFIGPROC choose_config = nullptr;
  PFNEGLCREATECONTEXTPROC create_context = nullptr;
  PFNEGLMAKECURRENTPROC make_current = nullptr;
  if (!find(get_platform_display, "eglGetPlatformDisplay") || !find(initialize, "eglInitialize") ||
      !find(bind_api, "eglBindAPI") || !find(choose_config, "eglChooseConfig") ||
      !find(create_context, "eglCreateContext") || !find(make_current, "eglMakeCurrent"))
    return fail("EGL is older than 1.5");
  const EGLDisplay display = get_platform_display(EGL_PLATFORM_SURFACELESS_MESA, nullptr, nullptr);
  if (display == EGL_NO_DISPLAY || !initialize(display, nullptr, nullptr)) return fail("no EGL display");
  const EGLint wanted[] = {EGL_SURFACE_TYPE, 0, EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_NONE};
  EGLConfig config = nullptr;
  EGLint count = 0;
  if (!bind_api(EGL_OPENGL_API) || !choose_config(display, wanted, &config, 1, &count) || count == 0)
    return fail("EGL offers no OpenGL");
  const EGLint version[] = {EGL_CONTEXT_MAJOR_VERSION, 4, EGL_CONTEXT_MINOR_VERSION, 2, EGL_NONE};
  const EGLContext context = create_context(display, config, EGL_NO_CONTEXT, version);
  if (context == EGL_NO_CONTEXT) return fail("no OpenGL 4.2");
  if (!make_current(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context)) return fail("context refused");
  return address;
}

const GlContext* make(std::string* why) {
  const auto address = open_context(why);
  if (!address) return nullptr;
  static GlContext gl;
#define QV_BENCH_GL_FETCH(type, name) gl.name = reinterpret_cast<type>(address("gl" #name));
  QV_BENCH_GL(QV_BENCH_GL_FETCH)
#undef QV_BENCH_GL_FETCH
  gl.renderer = reinterpret_cast<const char*>(gl.GetString(GL_RENDERER));
  gl.software =
      gl.renderer.find("llvmpipe") != std::string::npos || gl.renderer.find("softpipe") != std::string::npos;
  return &gl;
}

}  // namespace

const GlContext* GlContext::get(std::string* why) {
  static std::string reason;
  static const GlContext* context = make(&reason);
  if (why) *why = reason;
  return context;
}

}  // namespace support
