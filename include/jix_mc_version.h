/* SPDX-License-Identifier: GPL-2.0 */
/* Release of jix_xpon_multicast: the module, mcctl and the packages. */
#ifndef JIX_MC_VERSION_H
#define JIX_MC_VERSION_H

#define JIX_MC_VERSION	"1.1.0"

#endif
