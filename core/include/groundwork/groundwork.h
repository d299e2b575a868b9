/* SPDX-License-Identifier: MIT */
/**
 * @file
 * The one header of the `g_` family.
 *
 * Streams (`url_*`) have their own header, <groundwork/url.h>.
 */
#ifndef GROUNDWORK_GROUNDWORK_H
#define GROUNDWORK_GROUNDWORK_H

#include <groundwork/callback.h>
#include <groundwork/conf.h>
#include <groundwork/crypt.h>
#include <groundwork/dir.h>
#include <groundwork/fifo.h>
#include <groundwork/file.h>
#include <groundwork/file_map.h>
#include <groundwork/hash.h>
#include <groundwork/list.h>
#include <groundwork/log.h>
#include <groundwork/memory.h>
#include <groundwork/package.h>
#include <groundwork/queue.h>
#include <groundwork/str.h>
#include <groundwork/sys.h>
#include <groundwork/thread.h>
#include <groundwork/timeout.h>
#include <groundwork/timer.h>

#endif
