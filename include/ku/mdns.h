/* Placeholder: this family's declarations are being written. */
#ifndef KU_MDNS_H
#define KU_MDNS_H

#include "ku/export.h"

#endif /* KU_MDNS_H */
