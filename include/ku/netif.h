/* Placeholder: this family's declarations are being written. */
#ifndef KU_NETIF_H
#define KU_NETIF_H

#include "ku/export.h"

#endif /* KU_NETIF_H */
