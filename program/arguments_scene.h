// Options of the scene, which several subcommands have.
#ifndef SE_BF_ARGUMENTS_SCENE_H
#define SE_BF_ARGUMENTS_SCENE_H

#include "options.h"

namespace CLI {
class App;
}

// Gives `command` the option --hop, whose value goes to `hop`, in samples.
void arguments_declare_hop(CLI::App *command, int *hop);

// Gives `command` all options of the scene, with --hop.
void arguments_declare_scene(CLI::App *command, enhance_options *options);

#endif  // SE_BF_ARGUMENTS_SCENE_H
