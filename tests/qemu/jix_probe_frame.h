/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The test frame that jix_mc_probe.ko sends through the control API's
 * transmit operation and jixtest checks on the far end of the port's
 * veth pair.  Shared by the kernel module and the user-space program, so
 * it uses plain C types only.
 */
#ifndef JIX_PROBE_FRAME_H
#define JIX_PROBE_FRAME_H

#define JIX_PROBE_ETHERTYPE	0x88B5	/* IEEE local experimental */
#define JIX_PROBE_LEN		60
#define JIX_PROBE_MAX_LEN	2048

/*
 * Byte @i of the test frame sent on @port: a group MAC destination, a
 * source MAC that names the port, the experimental ethertype, then a
 * payload that depends on the position, so a shifted, truncated or
 * foreign frame does not match.
 */
static inline unsigned char jix_probe_frame_byte(unsigned int i,
						 unsigned int port)
{
	static const unsigned char head[14] = {
		0x01, 0x00, 0x5e, 0x7f, 0x4a, 0x58,	/* destination */
		0x02, 0x4a, 0x49, 0x58, 0x00, 0x00,	/* source, port in [11] */
		JIX_PROBE_ETHERTYPE >> 8, JIX_PROBE_ETHERTYPE & 0xff,
	};

	if (i == 11)
		return (unsigned char)port;
	if (i < sizeof(head))
		return head[i];
	return (unsigned char)(i * 7 + port);
}

#endif /* JIX_PROBE_FRAME_H */
