#pragma once

#include <qv/export.h>
#include <qv/nodes/filter/scratch.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// A filter as a short chain of full-target fragment passes: what the chain is (Plan), and the
// compiled programs it finds by their file names (the program table, filled by the host).
//
// A Plan belongs to one thread and building it makes no GL call. The program table is process-wide
// and unlocked; it must not change while a plan runs. run(), and the table: GL thread only.
namespace qv::nodes::filter {

// One uniform value of a pass: `n` components, 1 to 4, the others 0.
struct Uni {
  std::string name;
  int32_t n = 1;
  float v[4] = {};
};

QV_API Uni U(const char* name, double a);
QV_API Uni U2(const char* name, double a, double b);
QV_API Uni U3(const char* name, double a, double b, double c);
QV_API Uni U4(const char* name, double a, double b, double c, double d);

// A program ready to draw one fragment file over a whole target. The host compiles it, notes its
// uniforms with gpu::program_add, and owns the GL objects.
struct Prog {
  uint32_t program = 0;  // GL program
  uint32_t vao = 0;      // vertex array of a full-target primitive, with its element buffer
  uint32_t mode = 0;     // GL primitive mode
  int32_t count = 0;     // indices to draw
  std::vector<std::pair<std::string, int32_t>> samplers;  // sampler uniform, texture unit
};

// The program registered for a fragment file ("blur_h.frag"); null when there is none. The pointer
// stays valid until that entry is replaced or the table cleared.
QV_API const Prog* program_get(std::string_view name);

// Registers a copy of `prog` for a fragment file, over an earlier one.
QV_API void program_set(std::string_view name, const Prog& prog);

// Empties the table; the GL objects are the host's to delete.
QV_API void programs_clear();

// One draw of a plan.
struct Pass {
  const Prog* prog = nullptr;                             // found by run()
  std::string program;                                    // file name
  std::vector<std::pair<std::string, int32_t>> textures;  // sampler uniform, slot that it reads
  std::vector<Uni> unis;
  int32_t out = -1;  // slot that it writes
};

// What a slot of a plan is.
enum SlotKind : int32_t {
  slot_input = 0,
  slot_scratch = 1,  // the output of a pass
  slot_target = 2,   // one that a run has bound to its target
};

// What Plan::run and run_op return.
enum RunResult : int {
  run_drawn = 1,
  run_nothing = 0,   // nothing to draw: the output is an input; the target is untouched
  run_bad = -1,      // a plan, program, operation or target that cannot be drawn; before any GL call
  run_refused = -2,  // not the context that gl::load accepted, or one that ran out of objects
};

// The images of a filter (slots: the inputs first, then one an output of a pass) and the passes
// that fill them. Owns no GL object; slot indices stay as they are for the plan's life.
class QV_API Plan {
 public:
  struct Slot {
    int32_t kind = slot_input;  // a SlotKind
    int32_t w = 0;              // pixels
    int32_t h = 0;
    Tex tex;
  };

  // One slot an input, in order.
  explicit Plan(std::span<const Tex> inputs);

  // Adds a pass and returns the slot it writes. `input`, unless negative, is the slot that it reads
  // as "u_image", before `textures`. The output is w x h pixels; with w <= 0 and an input, it has
  // the input's size. Nothing is checked here but that an inherited size can be read: an `input`
  // beyond the slots gives the size as it stands; run() then reports the plan as bad.
  int pass(const char* program, int input, std::vector<Uni> unis,
           std::vector<std::pair<std::string, int>> textures, int w, int h);

  // The slot of the i-th input: i.
  int input(int i) const {
    return i;
  }
  // Size of a slot that exists, in pixels.
  int w(int slot) const {
    return slots[static_cast<size_t>(slot)].w;
  }
  int h(int slot) const {
    return slots[static_cast<size_t>(slot)].h;
  }

  // Draws all passes, slot `out` into `target` and the others into scratch textures, and binds the
  // framebuffer `restore` after every draw. Uniforms and samplers that a program lacks, or that do
  // not fit, are left out; of more than 16 textures a pass gets the first 16. A run leaves no
  // scratch texture bound, and slot `out` bound to the target.
  // Returns a RunResult. run_nothing: slot `out` is an input. run_bad: a slot that does not exist, a size
  // that is not the target's, is none or is that of no texture (more than 65,536 pixels a side), or a
  // program that is not in the table or unknown to the registry. run_refused: the current context is
  // not the one that gl::load accepted, lacks an entry point, is lost between passes, or gives no name
  // for a new texture.
  int run(int out, const Tex& target, uint32_t restore);

  std::vector<Slot> slots;
  std::vector<Pass> passes;
};

}  // namespace qv::nodes::filter
