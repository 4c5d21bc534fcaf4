// The two credentials, which never come from the command line: other users can read that. No
// message holds a credential.
#ifndef IXFS_PREPARE_CREDENTIALS_H
#define IXFS_PREPARE_CREDENTIALS_H

#include "options.h"
#include "request.h"

#include <string>

// Reads the credentials from where they are said to be, each a line of its own; leaves empty what
// is said to be nowhere. Throws UsageError when one cannot be read.
Credentials read_credentials(const CredentialSource& source);

// Throws UsageError when a credential must not reach the mount helper.
void check_credentials(const Credentials& credentials, const std::string& server);

#endif
