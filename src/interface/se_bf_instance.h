// The life of an instance: creation, initialisation, mode changes, release.
//
// The public functions of this module are declared in tm_se_bf.h.
#ifndef TM_SE_BF_INTERFACE_SE_BF_INSTANCE_H
#define TM_SE_BF_INTERFACE_SE_BF_INSTANCE_H

#include "interface/instance_record.h"

// The public functions of the same names, for a core of the caller's; see tm_se_bf.h. To release an
// instance is to release its core.
se_bf_inst *se_bf_instance_create(core_state *core, const se_bf_create_param *param);
int32_t se_bf_instance_init(core_state *core, se_bf_inst *inst, const se_bf_init_param *param);
void se_bf_instance_change_mode(core_state *core, se_bf_inst *inst, int32_t mode);

// Whether the core's pool still holds the instance: false once any release has emptied it. Does not
// read through `inst`: its memory may belong to another object by then.
bool se_bf_instance_alive(const core_state *core, const se_bf_inst *inst);

#endif  // TM_SE_BF_INTERFACE_SE_BF_INSTANCE_H
