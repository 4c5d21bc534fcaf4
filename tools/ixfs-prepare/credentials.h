// The two credentials, which never come from the command line: other users can read that.
#ifndef IXFS_PREPARE_CREDENTIALS_H
#define IXFS_PREPARE_CREDENTIALS_H

#include "options.h"
#include "request.h"

// Reads the credentials from where the options say, each a line of its own. Throws UsageError when
// one cannot be read or must not reach the mount helper; the text never holds a credential.
Credentials read_credentials(const Options& options);

#endif
