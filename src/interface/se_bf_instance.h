// The life of an instance: creation, initialisation, mode changes, release.
//
// The public functions of this module are declared in tm_se_bf.h.
#ifndef TM_SE_BF_INTERFACE_SE_BF_INSTANCE_H
#define TM_SE_BF_INTERFACE_SE_BF_INSTANCE_H

#include "interface/instance_record.h"

// Whether the pool still holds the instance: false once any release has emptied it. Does not read
// through `inst`: its memory may belong to another object by then.
bool se_bf_instance_alive(const se_bf_inst *inst);

#endif  // TM_SE_BF_INTERFACE_SE_BF_INSTANCE_H
