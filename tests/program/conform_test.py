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
    def judge(self, status, text, says=EQUAL, **changes):
        """Expects this of the stand-in."""
        env = {**os.environ, "SAYS": says, "DIVISOR": "1", "ALTERED": "-1", "GIVES": "2560",
               "PLAYS": str(program.TOP / "src/conformance/pcm_bf_mvdr.s16"),
               **program.compile_library("stand_in.so", STAND_IN),
               **{name: str(changes[name]) for name in changes}}
        return self.expect(status, text, "conform", env=env)

    def test_conforms_when_every_sample_is_equal(self):
        self.assertIn(b"conforms: all 32000 samples", self.judge(0, "").stdout)
        self.assertIn(b"conforms: all 32000 samples", self.expect(0, "", "conform").stdout)

    def test_a_single_bit_or_a_lower_figure_agree_closely(self):
        self.judge(3, "agrees closely but not to the bit: 1 of 32000 samples differ, the first at "
                   "0.6250 s (sample 10000), by at most 1 ", ALTERED=10000)
        self.judge(3, "own report denies it", "similarity=0.999790, pwr_sim=1.000000")
        self.judge(3, "own report denies it", "similarity=1.000000, pwr_sim=0.990001")

    def test_less_does_not_conform_whatever_the_report_says(self):
        self.judge(1, "power ratio 0.24", DIVISOR=2)
        self.judge(1, "0.998999", "similarity=0.998999, pwr_sim=1.000000")
        self.judge(1, "1.010100", "similarity=1.000000, pwr_sim=1.010100")
        self.judge(1, "does not conform", "no figures")
        self.judge(1, "other counts", GIVES=2559)


program.main()
