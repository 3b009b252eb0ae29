/* The public header as a C99 host sees it: record layouts, and all seven functions in calling
 * order.
 */
#undef NDEBUG
#include <assert.h>
#include <stddef.h>
#include <string.h>

#include "tm_se_bf.h"

/* C99 has no static assertion: a division by zero is no constant. */
enum {
  kCreateLayout =
      1 / (offsetof(se_bf_create_param, num_ch_in) == 0 &&
           offsetof(se_bf_create_param, samples_per_call) == 4 &&
           offsetof(se_bf_create_param, hop_len) == 8 && sizeof(se_bf_create_param) == 12),
  kInitLayout =
      1 / (offsetof(se_bf_init_param, mode) == 0 && offsetof(se_bf_init_param, mic_distance) == 4 &&
           offsetof(se_bf_init_param, doa) == 8 && sizeof(se_bf_init_param) == 12),
  kModes = 1 / (SE_BF_MODE_MEAN == 6000 && SE_BF_MODE_OMLSA == 6001 && SE_BF_MODE_MVDR == 6002 &&
                SE_BF_MODE_MONO == 6003)
};

int main(void) {
  const se_bf_create_param sizes = {2, 320, 0};
  const se_bf_init_param scene = {SE_BF_MODE_MVDR, 0.05f, 90.0f};
  int16_t in[2 * 320];
  int16_t out[320];
  int i;
  se_bf_inst *inst = se_bf_create(&sizes);
  for (i = 0; i < 2 * 320; ++i) {
    in[i] = (int16_t)(17 * i - 5000);
  }
  assert(strcmp(se_bf_get_version(), "1.3.5") == 0);
  assert(inst != NULL);
  assert(se_bf_init(inst, &scene) == 256);
  assert(se_bf_do(inst, out, in) == 320);
  se_bf_change_mode(inst, SE_BF_MODE_MONO);
  assert(se_bf_do(inst, out, in) == 320);
  assert(out[0] == in[0] && out[1] == in[2] && out[319] == in[638]);
  se_bf_destroy(inst);
  assert(se_bf_conformance_test("bf_mvdr", 0) > 0);
  return 0;
}
