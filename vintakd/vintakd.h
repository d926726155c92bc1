#ifndef VINTAKD_VINTAKD_H
#define VINTAKD_VINTAKD_H

/* The client's calls on the conversion service for programs in other languages: plain C, nothing is thrown,
 * every structure that may grow tells its size. docs/clients.md shows how to use it.
 *
 * Threads: one client may be used by any number of threads at once; each call waits for a channel of its own.
 * It is closed when no call is under way. An answer belongs to whoever got it. After a fork a child opens its
 * own client. Texts: what a function takes it does not keep. A text that it returns belongs to the answer and
 * lives as long; it ends with a NUL and is never null unless its function says so. Paths may be relative to
 * the working directory. */

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What a call returns. New ones may come: what a program does not know is a failure. */
enum vintakd_status {
    VINTAKD_OK = 0,
    VINTAKD_BAD_ARGUMENT = 1, /* a null pointer, or a structure of unknown size */
    VINTAKD_NO_DAEMON = 2,    /* nobody stands behind the segment */
    VINTAKD_NOT_ALLOWED = 3,  /* the segment belongs to another account */
    VINTAKD_BUSY = 4,         /* no channel was free in time */
    VINTAKD_SILENT = 5,       /* the servant fell silent, or out of step */
    VINTAKD_CRASHED = 6,      /* the servant ended while it worked on the request */
    VINTAKD_NO_MEMORY = 7,    /* of this process */
    VINTAKD_INTERNAL = 8,
    /* The daemon refused or could not do it; the answer's text says why. */
    VINTAKD_REQUEST = 16,     /* the request makes no sense */
    VINTAKD_FILE = 17,        /* the file cannot be opened or read */
    VINTAKD_OBJECT = 18,      /* it is no object, or is broken or contradicts itself */
    VINTAKD_UNSUPPORTED = 19, /* there is no decoder for it */
    VINTAKD_DECODE = 20,      /* a frame cannot be decoded */
    VINTAKD_LIMIT = 21,       /* a limit was hit */
    VINTAKD_MEMORY = 22,      /* the servant ran out of memory */
    VINTAKD_OUTPUT = 23,      /* a result cannot be written where the caller looks for it */
    VINTAKD_OTHER = 24
};

/* Which files a conversion writes: a sum. */
enum vintakd_files {
    VINTAKD_PREVIEW = 1,
    VINTAKD_STREAM = 2,
    VINTAKD_NO_THUMBNAILS = 4,
    VINTAKD_NO_RAW = 16
};

/* How it is done: a sum. */
enum vintakd_flags {
    VINTAKD_NO_CACHE = 1, /* no cache files and no processed copy */
    VINTAKD_KEEP_WIDE = 2 /* 16-bit frames stay wide whose values fit 8 bits */
};

/* NOLINTBEGIN(modernize-use-using): this is C */
typedef struct vintakd_client vintakd_client;
typedef struct vintakd_answer vintakd_answer;

typedef struct vintakd_conversion {
    size_t size;               /* sizeof(vintakd_conversion) */
    const char* input;         /* path of the object */
    const char* output_prefix; /* of the output files; its folder exists */
    const char* cache_prefix;  /* of the cache files; null: as the output files */
    uint32_t files;            /* enum vintakd_files */
    uint32_t flags;            /* enum vintakd_flags */
    int32_t frame;             /* the one frame to convert, from 1; 0: all */
    float stream_parameter;    /* 0: the default */
} vintakd_conversion;
/* NOLINTEND(modernize-use-using) */

/* The version of this interface: 1. It grows with every addition; nothing is taken away under one SONAME. */
uint32_t vintakd_api_version(void);
/* A few words on a status, never null; static. */
const char* vintakd_status_text(int status);

/* Connects to a daemon. `segment`: null for the environment variable VINTAKD_SEGMENT, else "vintakd". *client
 * is to be closed; null on failure. */
int vintakd_open(const char* segment, vintakd_client** client);
/* `client` may be null. */
void vintakd_close(vintakd_client* client);
/* How long a call waits for a free channel, in ms; below 0: as long as the daemon lives, which is the
 * default. */
int vintakd_set_timeout(vintakd_client* client, int milliseconds);

/* Whether a servant answers. */
int vintakd_ping(vintakd_client* client);

/* Each makes one request and waits for its end. `answer` may be null; otherwise *answer is to be freed,
 * whatever the call returns, and is null only when the status is VINTAKD_BAD_ARGUMENT or VINTAKD_NO_MEMORY.
 */
int vintakd_convert(vintakd_client* client, const vintakd_conversion* conversion, vintakd_answer** answer);
/* Every element of an object, a line each. `escape`: not 0 for line breaks and backslashes as \n, \r and \\.
 */
int vintakd_dump(vintakd_client* client, const char* input, int escape, vintakd_answer** answer);
/* The values of `count` tags, each group << 16 | element. */
int vintakd_query(vintakd_client* client, const char* input, const uint32_t* tags, size_t count,
                  vintakd_answer** answer);

/* The dump, or why the call failed; empty otherwise. */
const char* vintakd_answer_text(const vintakd_answer* answer);
/* Specific Character Set (0008,0005) of the dump or the values. */
const char* vintakd_answer_character_set(const vintakd_answer* answer);
/* What a conversion left out of the object, or read in a way that may surprise. */
size_t vintakd_answer_warning_count(const vintakd_answer* answer);
/* Null beyond the count. */
const char* vintakd_answer_warning(const vintakd_answer* answer, size_t index);
/* The values of a query, in the order of the tags. */
size_t vintakd_answer_value_count(const vintakd_answer* answer);
/* Null beyond the count. */
const char* vintakd_answer_value(const vintakd_answer* answer, size_t index);
/* `answer` may be null. */
void vintakd_answer_free(vintakd_answer* answer);

#ifdef __cplusplus
}
#endif

#endif
