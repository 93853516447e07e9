/* Error codes that validating functions report through the error output and return. */
#ifndef KVAUDIO_ERRORS_H
#define KVAUDIO_ERRORS_H

#define KVAUDIO_ERR_NULL_ARGUMENT 0xA80A2005u     /* a required pointer is null */
#define KVAUDIO_ERR_UNSUPPORTED 0xA80A8003u       /* format or code without a mapping */
#define KVAUDIO_ERR_BUFFER_TOO_SMALL 0xA80A800Bu  /* destination too small */

#endif
