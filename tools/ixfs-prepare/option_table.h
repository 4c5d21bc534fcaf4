// Which options there are. The help and the shells' completion are made from this table, too.
#ifndef IXFS_PREPARE_OPTION_TABLE_H
#define IXFS_PREPARE_OPTION_TABLE_H

#include "options.h"

namespace CLI
{
class App;
}

// Makes `app` the command line of ixfs-prepare, which fills `options`. The completion takes the kind of
// a value from the name of its type; tools/completion/command.h lists them.
void add_options(CLI::App& app, Options& options);

#endif
