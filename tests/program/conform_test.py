"""`se_bf conform` judges the library that is loaded, by its samples and not by its word."""
import os
import unittest

import program

# A library that plays the stored reference, altered as the environment says, and says what it says.
STAND_IN = r"""
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
static FILE *reference;
static int played;
static int number(const char *name) { return atoi(getenv(name)); }
void *se_bf_create(const void *sizes) { (void)sizes; return reference = fopen(getenv("PLAYS"), "rb"); }
int32_t se_bf_init(void *inst, const void *scene) { (void)inst; (void)scene; return 0; }
int32_t se_bf_do(void *inst, int16_t *out, int16_t *in) {
  (void)inst; (void)in;
  for (int n = 0; n < 2560; ++n, ++played) {
    uint8_t bytes[2] = {0, 0};
    fread(bytes, 1, 2, reference);
    out[n] = (int16_t)(bytes[0] | bytes[1] << 8) / number("DIVISOR") + (played == number("ALTERED"));
  }
  return number("GIVES");
}
void se_bf_change_mode(void *inst, int32_t mode) { (void)inst; (void)mode; }
void se_bf_destroy(void *inst) { (void)inst; }
const char *se_bf_get_version(void) { return "stand-in"; }
int32_t se_bf_conformance_test(const char *type, int32_t hop) {
  (void)hop;
  return printf("se_type= %s: %s\n", type, getenv("SAYS"));
}
"""
EQUAL = "similarity=1.000000, pwr_sim=1.000000"


@unittest.skipUnless(b"libtm_se_bf.so" in open(program.TOOL, "rb").read(),
                     "the library is a part of the program")
class Conform(program.ProgramCase):
    def test_samples_count_more_than_the_report(self):
        alike = "similarity={}, pwr_sim={}".format
        self.assertIn(b"conforms: all 32000 samples", self.expect(0, "", "conform").stdout)
        for status, text, says, change in [
                (0, "", EQUAL, {}),
                (3, "agrees closely but not to the bit: 1 of 32000 samples differ, the first at 0.6250 s "
                 "(sample 10000), by at most 1 ", EQUAL, {"ALTERED": "10000"}),
                (3, "own report denies it", alike("0.999790", "1.000000"), {}),
                (3, "own report denies it", alike("1.000000", "0.990001"), {}),
                (1, "power ratio 0.24", EQUAL, {"DIVISOR": "2"}),
                (1, "0.998999", alike("0.998999", "1.000000"), {}),
                (1, "1.010100", alike("1.000000", "1.010100"), {}),
                (1, "does not conform", "no figures", {}),
                (1, "other counts", EQUAL, {"GIVES": "2559"})]:
            env = {**os.environ, "SAYS": says, "DIVISOR": "1", "ALTERED": "-1", "GIVES": "2560",
                   "PLAYS": str(program.TOP / "src/conformance/pcm_bf_mvdr.s16"),
                   **program.compile_library("stand_in.so", STAND_IN), **change}
            self.assertEqual(status == 0, b"conforms: all" in self.expect(
                status, text, "conform", env=env).stdout)


program.main()
