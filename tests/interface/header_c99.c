/* The public header as a C99 host sees it: record layouts, and all functions in calling order. */
#undef NDEBUG
#include <assert.h>
#include <stddef.h>
#include <string.h>

#include "tm_se_bf.h"

int main(void) {
  const se_bf_create_param sizes = {2, 320, 0};
  const se_bf_init_param scene = {SE_BF_MODE_MVDR, 0.05f, 90.0f};
  int16_t in[2 * 320] = {4, 3, 2, 1};
  int16_t out[320];
  se_bf_inst *inst = se_bf_create(&sizes);
  assert(offsetof(se_bf_create_param, samples_per_call) == 4 && sizeof sizes == 12);
  assert(offsetof(se_bf_create_param, hop_len) == 8 && offsetof(se_bf_init_param, doa) == 8);
  assert(offsetof(se_bf_init_param, mic_distance) == 4 && sizeof scene == 12);
  assert(SE_BF_MODE_MEAN == 6000 && SE_BF_MODE_OMLSA == 6001 && SE_BF_MODE_MVDR == 6002);
  assert(strcmp(se_bf_get_version(), "1.3.5") == 0);
  assert(se_bf_init(inst, &scene) == 256);
  assert(se_bf_do(inst, out, in) == 320);
  se_bf_change_mode(inst, SE_BF_MODE_MONO);
  assert(se_bf_do(inst, out, in) == 320 && out[0] == 4 && out[1] == 2 && out[319] == 0);
  se_bf_destroy(inst);
  assert(se_bf_conformance_test("bf_mvdr", 0) > 0);
  return 0;
}
