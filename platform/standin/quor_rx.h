/* SPDX-License-Identifier: GPL-2.0 */
/* The stand-in network driver's receive side on the uplink "pon". */
#ifndef QUOR_RX_H
#define QUOR_RX_H

int quor_rx_start(void);
void quor_rx_stop(void);

#endif /* QUOR_RX_H */
