/* Placeholder: this family's declarations are being written. */
#ifndef KU_THREAD_H
#define KU_THREAD_H

#include "ku/export.h"

#endif /* KU_THREAD_H */
