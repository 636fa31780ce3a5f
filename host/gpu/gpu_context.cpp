#include "host/gpu/gpu_context.h"

#include <qv/gpu/gl/entry_points.h>

#include "host/gpu/debug.h"
#include "host/gpu/gl_functions.h"

#include <array>
#include <charconv>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <dlfcn.h>

namespace host::gpu {
namespace {

#define HOST_EGL_FUNCTIONS(X)                         \
  X(PFNEGLGETERRORPROC, GetError)                     \
  X(PFNEGLQUERYSTRINGPROC, QueryString)               \
  X(PFNEGLGETPLATFORMDISPLAYPROC, GetPlatformDisplay) \
  X(PFNEGLINITIALIZEPROC, Initialize)                 \
  X(PFNEGLTERMINATEPROC, Terminate)                   \
  X(PFNEGLBINDAPIPROC, BindAPI)                       \
  X(PFNEGLCHOOSECONFIGPROC, ChooseConfig)             \
  X(PFNEGLCREATECONTEXTPROC, CreateContext)           \
  X(PFNEGLDESTROYCONTEXTPROC, DestroyContext)         \
  X(PFNEGLMAKECURRENTPROC, MakeCurrent)

struct Egl {
#define HOST_EGL_MEMBER(type, name) type name = nullptr;
  HOST_EGL_FUNCTIONS(HOST_EGL_MEMBER)
#undef HOST_EGL_MEMBER
  PFNEGLGETPROCADDRESSPROC get_proc_address = nullptr;
  // Null where EGL cannot list devices.
  PFNEGLQUERYDEVICESEXTPROC query_devices = nullptr;
  PFNEGLQUERYDEVICESTRINGEXTPROC query_device_string = nullptr;
};

// One way to a display, and how to name it to a person.
struct Way {
  EGLenum platform = 0;
  void* native = nullptr;
  std::string name;
  bool software = false;
};

bool lists(const char* extensions, std::string_view wanted) {
  if (!extensions) return false;
  const std::string_view all(extensions);
  for (size_t at = all.find(wanted); at != std::string_view::npos; at = all.find(wanted, at + 1)) {
    const size_t end = at + wanted.size();
    if ((at == 0 || all[at - 1] == ' ') && (end == all.size() || all[end] == ' ')) return true;
  }
  return false;
}

const Egl& load_egl() {
  static const Egl egl = [] {
    Egl loaded;
    void* library = dlopen("libEGL.so.1", RTLD_NOW | RTLD_GLOBAL);
    if (!library) throw NoGpu("no OpenGL: libEGL.so.1 cannot be loaded (" + std::string(dlerror()) + ")");
    loaded.get_proc_address = reinterpret_cast<PFNEGLGETPROCADDRESSPROC>(dlsym(library, "eglGetProcAddress"));
    if (!loaded.get_proc_address) throw NoGpu("no OpenGL: libEGL.so.1 has no eglGetProcAddress");
#define HOST_EGL_FETCH(type, name)                                            \
  loaded.name = reinterpret_cast<type>(loaded.get_proc_address("egl" #name)); \
  if (!loaded.name) throw NoGpu("no OpenGL: EGL 1.5 is needed, egl" #name " is missing");
    HOST_EGL_FUNCTIONS(HOST_EGL_FETCH)
#undef HOST_EGL_FETCH
    loaded.query_devices =
        reinterpret_cast<PFNEGLQUERYDEVICESEXTPROC>(loaded.get_proc_address("eglQueryDevicesEXT"));
    loaded.query_device_string =
        reinterpret_cast<PFNEGLQUERYDEVICESTRINGEXTPROC>(loaded.get_proc_address("eglQueryDeviceStringEXT"));
    return loaded;
  }();
  return egl;
}

std::string egl_error(const Egl& egl) {
  const auto code = static_cast<unsigned>(egl.GetError());
  std::array<char, 16> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), code, 16).ptr;
  return "EGL error 0x" + std::string(digits.data(), end);
}

std::vector<Way> device_ways(const Egl& egl) {
  const char* extensions = egl.QueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
  if (!egl.query_devices || !egl.query_device_string || !lists(extensions, "EGL_EXT_platform_device"))
    return {};
  std::array<EGLDeviceEXT, 32> devices{};
  EGLint count = 0;
  if (!egl.query_devices(static_cast<EGLint>(devices.size()), devices.data(), &count)) return {};
  std::vector<Way> ways;
  for (int i = 0; i < count; ++i) {
    Way way{EGL_PLATFORM_DEVICE_EXT, devices[static_cast<size_t>(i)], "device " + std::to_string(i), false};
    const char* device_extensions = egl.query_device_string(way.native, EGL_EXTENSIONS);
    way.software = lists(device_extensions, "EGL_MESA_device_software");
    if (lists(device_extensions, "EGL_EXT_device_drm")) {
      const char* file = egl.query_device_string(way.native, EGL_DRM_DEVICE_FILE_EXT);
      if (file) way.name += " (" + std::string(file) + ")";
    }
    if (way.software) way.name += " (software)";
    ways.push_back(std::move(way));
  }
  return ways;
}

// The ways that a choice allows, the preferred one first.
std::vector<Way> ways_for(const Egl& egl, const DeviceChoice& choice) {
  std::vector<Way> devices = device_ways(egl);
  if (choice.kind == DeviceChoice::Kind::index) {
    if (choice.index >= static_cast<int>(devices.size())) {
      throw NoGpu("no device " + std::to_string(choice.index) + ": EGL lists " +
                  std::to_string(devices.size()) + " of them, counted from 0");
    }
    return {devices[static_cast<size_t>(choice.index)]};
  }
  std::vector<Way> ways;
  for (const bool software : {false, true}) {
    if (!software && choice.kind == DeviceChoice::Kind::software) continue;
    for (const Way& way : devices) {
      if (way.software == software) ways.push_back(way);
    }
  }
  if (lists(egl.QueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS), "EGL_MESA_platform_surfaceless")) {
    ways.push_back({EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, "surfaceless platform", false});
  }
  return ways;
}

bool is_software(std::string_view renderer) {
  for (const std::string_view name : {"llvmpipe", "softpipe", "swrast", "SwiftShader", "Software"}) {
    if (renderer.find(name) != std::string_view::npos) return true;
  }
  return false;
}

// Owns a display and its context while they are being made and used.
struct Session {
  const Egl* egl = nullptr;
  EGLDisplay display = EGL_NO_DISPLAY;
  EGLContext context = EGL_NO_CONTEXT;

  Session() = default;
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session() {
    if (display == EGL_NO_DISPLAY) return;
    egl->MakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    if (context != EGL_NO_CONTEXT) egl->DestroyContext(display, context);
    egl->Terminate(display);
  }
};

// A context that says when a device's reset has taken everything from it, where EGL has such.
EGLContext create_context(const Egl& egl, EGLDisplay display, EGLConfig config) {
  constexpr size_t told = 6;  // from where on it is told of resets
  std::array<EGLint, 9> wanted = {EGL_CONTEXT_MAJOR_VERSION,
                                  4,
                                  EGL_CONTEXT_MINOR_VERSION,
                                  2,
                                  EGL_CONTEXT_OPENGL_PROFILE_MASK,
                                  EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT,
                                  EGL_CONTEXT_OPENGL_RESET_NOTIFICATION_STRATEGY,
                                  EGL_LOSE_CONTEXT_ON_RESET,
                                  EGL_NONE};
  if (lists(egl.QueryString(display, EGL_EXTENSIONS), "EGL_EXT_create_context_robustness")) {
    const EGLContext context = egl.CreateContext(display, config, EGL_NO_CONTEXT, wanted.data());
    if (context != EGL_NO_CONTEXT) return context;
  }
  wanted[told] = EGL_NONE;
  return egl.CreateContext(display, config, EGL_NO_CONTEXT, wanted.data());
}

PFNGLGETGRAPHICSRESETSTATUSPROC reset_status(const Egl& egl) {
  GLint major = 0;
  GLint minor = 0;
  gl.GetIntegerv(GL_MAJOR_VERSION, &major);
  gl.GetIntegerv(GL_MINOR_VERSION, &minor);
  const bool core = major > 4 || (major == 4 && minor >= 5);
  return core ? reinterpret_cast<PFNGLGETGRAPHICSRESETSTATUSPROC>(
                    egl.get_proc_address("glGetGraphicsResetStatus"))
              : nullptr;
}

// Makes a context current; why that failed, or "".
std::string start(const Egl& egl, const Way& way, Session& session) {
  session.egl = &egl;
  const EGLDisplay display = egl.GetPlatformDisplay(way.platform, way.native, nullptr);
  if (display == EGL_NO_DISPLAY) return "no display, " + egl_error(egl);
  if (!egl.Initialize(display, nullptr, nullptr)) return "not initialised, " + egl_error(egl);
  session.display = display;
  if (!egl.BindAPI(EGL_OPENGL_API)) return "no OpenGL, " + egl_error(egl);
  const EGLint wanted[] = {EGL_SURFACE_TYPE, 0, EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_NONE};
  EGLConfig config = nullptr;
  EGLint count = 0;
  if (!egl.ChooseConfig(display, wanted, &config, 1, &count) || count == 0) return "no OpenGL configuration";
  session.context = create_context(egl, display, config);
  if (session.context == EGL_NO_CONTEXT) return "no OpenGL 4.2 core context, " + egl_error(egl);
  if (!egl.MakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, session.context)) {
    return "context without a surface refused, " + egl_error(egl);
  }
  std::string error;
  if (!qv::gpu::gl::load(&error)) return error;
  const std::string missing = load_gl_functions(egl.get_proc_address);
  if (!missing.empty()) return "OpenGL function " + missing + " is missing";
  gl.GetGraphicsResetStatus = reset_status(egl);
  load_debug(egl.get_proc_address);
  return {};
}

}  // namespace

struct GpuContext::State {
  Session session;
  std::string renderer;
  bool software = false;
  int max_texture_size = 0;
  bool lost = false;
};

DeviceChoice parse_device(const std::string& text) {
  if (text == "auto") return {DeviceChoice::Kind::automatic, 0};
  if (text == "software") return {DeviceChoice::Kind::software, 0};
  int index = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), index);
  if (error != std::errc() || end != text.data() + text.size() || index < 0) {
    throw std::invalid_argument("expected auto, software or a device number, found \"" + text + "\"");
  }
  return {DeviceChoice::Kind::index, index};
}

GpuContext GpuContext::open(const DeviceChoice& choice) {
  const Egl& egl = load_egl();
  std::string tried;
  for (const Way& way : ways_for(egl, choice)) {
    auto state = std::make_unique<State>();
    std::string fault = start(egl, way, state->session);
    if (fault.empty()) {
      state->renderer = reinterpret_cast<const char*>(gl.GetString(GL_RENDERER));
      state->software = is_software(state->renderer);
      gl.GetIntegerv(GL_MAX_TEXTURE_SIZE, &state->max_texture_size);
      if (choice.kind != DeviceChoice::Kind::software || state->software) return GpuContext(std::move(state));
      fault = "it is no software device but " + state->renderer;
    }
    tried += "\n  " + way.name + ": " + fault;
  }
  if (tried.empty()) tried = "\n  nothing: EGL lists no device and no surfaceless platform";
  throw NoGpu("no usable OpenGL 4.2; tried" + tried);
}

GpuContext::GpuContext(std::unique_ptr<State> state) : state_(std::move(state)) {}
GpuContext::GpuContext(GpuContext&&) noexcept = default;
GpuContext& GpuContext::operator=(GpuContext&&) noexcept = default;
GpuContext::~GpuContext() = default;

const std::string& GpuContext::renderer() const {
  return state_->renderer;
}

bool GpuContext::software() const {
  return state_->software;
}

int GpuContext::max_texture_size() const {
  return state_->max_texture_size;
}

bool GpuContext::lost() const {
  // A driver that has recovered says so no more.
  if (!state_->lost && gl.GetGraphicsResetStatus && gl.GetGraphicsResetStatus() != GL_NO_ERROR)
    state_->lost = true;
  return state_->lost;
}

}  // namespace host::gpu
