/* The driver: bring-up, devices, and the packing of placement data. */
#ifndef JXSDK_DRV_H
#define JXSDK_DRV_H

#include "jxsdk/types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Brings the driver up. Once per process, before any other call; a second call succeeds and does
 *  nothing. */
JXSDK_API jx_status_t jx_drv_init(void);

/** Adds a physical device: one that matches packets and that placement infos are processed on.
 *  JX_ALREADY_EXISTS if the number is taken, JX_INVALID_ARGUMENTS for a profile that cannot be
 *  loaded (the reason goes to standard error). */
JXSDK_API jx_status_t jx_device_add(jx_dev_id_t dev_id, const jx_device_profile_t* profile,
                                    jx_dev_type_t type);

/** Adds a virtual device: its tables are written like those of a physical one, and every write
 *  is reported to the placement callbacks registered on the table. Statuses as jx_device_add. */
JXSDK_API jx_status_t jx_virtual_device_add(jx_dev_id_t dev_id, const jx_device_profile_t* profile,
                                            jx_dev_type_t type);

/** Removes a device and everything it holds, without reporting placement updates. Objects
 *  obtained from the device must not be used afterwards. JX_OBJECT_NOT_FOUND if there is none. */
JXSDK_API jx_status_t jx_device_remove(jx_dev_id_t dev_id);

/* Placement data: what an update places, opaque to everybody but the driver. A placement callback
 * is given a pointer to it; packing turns it into bytes that another process can take. */

/** Bytes that jx_drv_plcmt_copy_pack will write for `data`. */
JXSDK_API jx_status_t jx_drv_plcmt_pack_data_size(const void* data, size_t* size);

/** Packs `data` into `packed`, which has room for what jx_drv_plcmt_pack_data_size reported. No
 *  alignment is needed. */
JXSDK_API jx_status_t jx_drv_plcmt_copy_pack(const void* data, uint8_t* packed);

/** Bytes that jx_drv_plcmt_copy_unpack will write for these packed bytes, whose length they carry
 *  themselves. Malformed bytes: JX_INVALID_ARGUMENTS. */
JXSDK_API jx_status_t jx_drv_plcmt_unpack_data_size(const uint8_t* packed, size_t* size);

/** Unpacks into `data`, which has room for what jx_drv_plcmt_unpack_data_size reported and is
 *  aligned as operator new[] aligns. The result refers to nothing outside itself. Malformed bytes:
 *  JX_INVALID_ARGUMENTS. */
JXSDK_API jx_status_t jx_drv_plcmt_copy_unpack(const uint8_t* packed, uint8_t* data);

#ifdef __cplusplus
}
#endif
#endif
