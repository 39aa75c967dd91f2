/* libku: every family of the library at once. */
#ifndef KU_H
#define KU_H

#include "ku/export.h"
#include "ku/version.h"

/* runtime */
#include "ku/log.h"
#include "ku/clock.h"
#include "ku/thread.h"
#include "ku/process_lock.h"
/* text and codecs */
#include "ku/str.h"
#include "ku/codec.h"
#include "ku/des.h"
/* memory containers */
#include "ku/membuffer.h"
#include "ku/circle_buf.h"
#include "ku/dynamic_mem.h"
#include "ku/list.h"
/* structured files */
#include "ku/json.h"
#include "ku/table.h"
#include "ku/ini.h"
/* network */
#include "ku/netif.h"
#include "ku/socket.h"
#include "ku/mdns.h"
#include "ku/https.h"
/* audio */
#include "ku/miniresample.h"
#include "ku/resample.h"
/* plug-ins */
#include "ku/plugin.h"

#endif /* KU_H */
