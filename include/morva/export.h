/* What every family header needs: the export mark and C linkage. */
#ifndef MORVA_EXPORT_H
#define MORVA_EXPORT_H

#define MORVA_API __attribute__((__visibility__("default")))
#define MORVA_PRINTF(text, first) __attribute__((__format__(__printf__, text, first)))
#define MORVA_NULL_TERMINATED __attribute__((__sentinel__))

#ifdef __cplusplus
#define MORVA_BEGIN extern "C" {
#define MORVA_END }
#define MORVA_NORETURN [[noreturn]]
#else
#define MORVA_BEGIN
#define MORVA_END
#define MORVA_NORETURN _Noreturn
#endif

#endif
