/* Plug-in for qemu-user that counts executed guest instructions and prints the number at the end.
 *
 * The declarations below are those of version 1 of QEMU's plug-in interface (QEMU 4.2 to 8.2, the
 * manual's chapter "TCG Plugins"); the header of that interface is not packaged by Debian.
 */
#include <inttypes.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

typedef uint64_t qemu_plugin_id_t;
struct qemu_plugin_tb;

enum { QEMU_PLUGIN_INLINE_ADD_U64 = 0 };

typedef void (*qemu_plugin_vcpu_tb_trans_cb_t)(qemu_plugin_id_t id, struct qemu_plugin_tb *tb);
typedef void (*qemu_plugin_udata_cb_t)(qemu_plugin_id_t id, void *userdata);

void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id, qemu_plugin_vcpu_tb_trans_cb_t cb);
void qemu_plugin_register_vcpu_tb_exec_inline(struct qemu_plugin_tb *tb, int op, void *counter,
                                              uint64_t addend);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, qemu_plugin_udata_cb_t cb, void *userdata);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb *tb);

extern int qemu_plugin_version;
int qemu_plugin_install(qemu_plugin_id_t id, const void *info, int argc, char **argv);

int qemu_plugin_version = 1;

static uint64_t executed;

static void count_block(qemu_plugin_id_t id, struct qemu_plugin_tb *tb) {
  (void)id;
  qemu_plugin_register_vcpu_tb_exec_inline(tb, QEMU_PLUGIN_INLINE_ADD_U64, &executed,
                                           qemu_plugin_tb_n_insns(tb));
}

static void print_count(qemu_plugin_id_t id, void *userdata) {
  (void)id;
  (void)userdata;
  fprintf(stderr, "instructions %" PRIu64 "\n", executed);
}

int qemu_plugin_install(qemu_plugin_id_t id, const void *info, int argc, char **argv) {
  (void)info;
  (void)argc;
  (void)argv;
  qemu_plugin_register_vcpu_tb_trans_cb(id, count_block);
  qemu_plugin_register_atexit_cb(id, print_count, NULL);
  return 0;
}
