/*
 * rqcore: every public header of the library.
 */
#ifndef RQCORE_RQCORE_H
#define RQCORE_RQCORE_H

#include "types.h"
#include "frame.h"
#include "sys.h"
#include "lists.h"
#include "ldstr.h"
#include "cksum.h"
#include "code.h"
#include "profiles.h"
#include "log.h"
#include "encode.h"
#include "unicode.h"
#include "charmap.h"
#include "stream.h"
#include "mime.h"
#include "mail.h"

#endif
