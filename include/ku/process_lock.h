/* A lock held by the kernel device "/dev/plock" (character device 210, 0).
 *
 * The device is opened read-only at the first kuprocess_lock or
 * kuprocess_is_locked call and stays open, process-wide, until the process
 * ends. When the node is missing it is created first with the shell command
 * "mknod /dev/plock c 210 0" (needs the right to make device nodes). An open
 * that fails is tried again, node test included, at the next call. What the
 * lock means, whether taking it blocks and what the calls return is the
 * driver's.
 *
 * Threads: all threads share the one descriptor, which no lock guards. Once
 * it is open, the calls may run on several threads at once; two first calls
 * at the same moment can both open the node, and one descriptor is then lost
 * until the process ends, so make the first call before starting threads. */
#ifndef KU_PROCESS_LOCK_H
#define KU_PROCESS_LOCK_H

#include <stdint.h>

#include "ku/export.h"

KU_BEGIN_DECLS

/* ioctl commands of the device, each sent with the argument 0. */
#define PLOCK_IOC_LOCK 8193
#define PLOCK_IOC_UNLOCK 8194
#define PLOCK_IOC_QUERY 8195

/* Takes the lock: the driver's ioctl result, or -1 when the device cannot
 * be opened. */
KU_API int32_t kuprocess_lock(void) KU_NOEXCEPT;

/* Releases the lock: the driver's ioctl result. Opens nothing: before the
 * device is open it sends nothing and gives 0. */
KU_API int32_t kuprocess_unlock(void) KU_NOEXCEPT;

/* 1 when the driver says the lock is held (any non-zero answer, a failed
 * ioctl's -1 too), 0 when it is free or the device cannot be opened. */
KU_API int32_t kuprocess_is_locked(void) KU_NOEXCEPT;

KU_END_DECLS

#endif /* KU_PROCESS_LOCK_H */
