#ifndef QVCORE_QVCORE_H
#define QVCORE_QVCORE_H

/*
 * The core for programs that are not written in C++: a C interface (C89) to the same services and
 * the same bus. A program may use both.
 *
 * Texts are UTF-8 and end with a zero byte; what is not UTF-8 counts as NULL. The library copies
 * what it is given. A `const char *` that it returns belongs to what it was asked of, as told
 * there; a `char *` belongs to the caller, who gives it back with qv_free().
 *
 * Unless told otherwise an operation may be called from any thread and from within a callback,
 * takes NULL for any pointer, waits for nothing, and returns QV_OK or one of the other results.
 * What returns a pointer returns NULL when there is nothing to return, an argument that it needs is
 * NULL, or memory is short. No C++ exception leaves the library.
 */

#if defined(__GNUC__)
#define QV_API __attribute__((visibility("default")))
#else
#define QV_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Results. */
#define QV_OK 0
/** An argument is NULL or not UTF-8 where a text is needed, or a number that stands for nothing. */
#define QV_INVALID (-1)
/** Memory was short, or code of the program that was called threw; standard error tells. */
#define QV_FAILED (-2)
/** The time was over before all was done. */
#define QV_UNDER_WAY (-3)

/** "4.7.4"; belongs to the library. */
QV_API const char* qv_version(void);
/** Gives a text back that an operation returned as `char *`. NULL is left alone. */
QV_API void qv_free(char* text);

/* Before the start. */

/** Reverse-DNS name of the program: names its files. NULL for the default, the program's name. */
QV_API int qv_set_identifier(const char* identifier);
/** Where the program's files lie; one process at a time. NULL for the default, a directory of that
 * name in the user's data. */
QV_API int qv_set_container_directory(const char* directory);
/** Where configurations are that were shipped with the program. NULL for the default, "Resources"
 * beside the program if there is such a directory, else the program's own. */
QV_API int qv_set_resource_directory(const char* directory);
/** Takes the network to be there at all times, for a machine without a default route whose hits go
 * to itself or to its neighbours. */
QV_API int qv_assume_network(void);
/** Says that somebody will ask for consent: hits wait, from the start on, until the program posts
 * QV_NAME_STARTING_THE_SDK. QV_NAME_STOPPING_THE_SDK before that drops those that wait, and holds
 * none that come later; nor does it hold anything in a kit that was started (docs/consent.md). */
QV_API int qv_expect_consent(void);
/** Starts the core; once more, it does nothing. On a thread other than the main one it waits until
 * the main thread has begun to ask the web engine for its user agent, unless QV_OWN_WEB_ENGINE is
 * on: a main thread that waits for the caller deadlocks. */
QV_API int qv_start(void);

/* Settings. */

#define QV_LOG_LEVEL 1          /* lines below it are not logged: 0 all, 6 none; 0 at first */
#define QV_LOG_NOTIFICATIONS 2  /* whether the log tells of each notification; 0 at first */
#define QV_BLOCK_HITS 3         /* whether requests are dropped instead of sent; 0 at first */
#define QV_OWN_WEB_ENGINE 4     /* whether no user agent is asked for at the start; 0 at first */
#define QV_SEND_IN_BACKGROUND 5 /* whether the background holds nothing; 0 from the start on */

QV_API int qv_set(int setting, int value);
/** Stores the setting; QV_INVALID, and nothing is stored, for an unknown one and for NULL. */
QV_API int qv_get(int setting, int* value);

/* User info: keys and values. An info is for one thread at a time. */

typedef struct qv_info qv_info;

/** An empty one, to be given back with qv_info_free(). */
QV_API qv_info* qv_info_new(void);
/** Another one with the same content, for what a callback wants to keep. */
QV_API qv_info* qv_info_copy(const qv_info* info);
/** What has to be posted to send the request once more of which the info is the answer or error:
 * without what the core has added. An answer or error itself must not be posted again, since that
 * would pass by the hits that wait. */
QV_API qv_info* qv_info_request(const qv_info* info);
QV_API void qv_info_free(qv_info* info);

/** Store a value under the key in the place of an earlier one; a text of NULL removes it. */
QV_API int qv_info_set_text(qv_info* info, const char* key, const char* text);
QV_API int qv_info_set_number(qv_info* info, const char* key, double number);
QV_API int qv_info_set_flag(qv_info* info, const char* key, int flag);

/** The text, or the number as text. Belongs to the info, until that is freed, changed, or asked for
 * the same key again. */
QV_API const char* qv_info_text(const qv_info* info, const char* key);
/** The number, or that which the text begins with; 0 if there is none. */
QV_API double qv_info_number(const qv_info* info, const char* key);
/** The status of the HTTP answer, in the info of a callback that is told of it and in copies; else
 * 0. */
QV_API int qv_info_status(const qv_info* info);
/** All of it as a JSON object. Bytes and other objects are texts that describe them, dates are
 * seconds since 1970; what is nested more than 512 deep is null. */
QV_API char* qv_info_json(const qv_info* info);

/* Notifications. */

/** Runs on the thread that posts, on several at once if several post: answers come on a thread of
 * the library. Name and info belong to the library and are gone when the callback returns. A
 * program that leaves the callback by longjmp() leaves the library in disorder. */
typedef void (*qv_callback)(const char* name, const qv_info* info, void* user);

/** Delivers to all who listen for exactly this name, on the calling thread. The info, or NULL for
 * none, is copied. */
QV_API int qv_post(const char* name, const qv_info* info);
/** Posts QV_NAME_HTTP_REQUEST: a GET, or a POST if there is a body. What becomes of it is told by
 * QV_NAME_HTTP_RESPONSE or QV_NAME_HTTP_REQUEST_ERROR; a URL that is none, within this call. */
QV_API int qv_send(const char* url, const char* body);
/** Calls the callback for each notification of this name, perhaps before it returns, until
 * qv_unlisten(). Returns the listener's number, which is positive, or QV_INVALID or QV_FAILED. */
QV_API long qv_listen(const char* name, qv_callback callback, void* user);
/** When this returns, the callback runs no more, but for a call that the caller itself is in: it
 * waits for those on other threads, so the caller holds nothing that they wait for. QV_INVALID when
 * there is no such listener. Nobody has to call it before the process ends. */
QV_API int qv_unlisten(long listener);

/* Hits. They need a start. */

/** Writes those that wait to the container, beside the one under way; the next start sends them.
 * Waits for the disk. */
QV_API int qv_save(void);
/** Does so at each change of their number from now on, within the post of a hit, too: for a program
 * that may be killed. */
QV_API int qv_save_at_each_change(void);
/** The clean end: holds all hits, waits until the one under way has been told of, but no longer
 * than so many milliseconds, and writes those that wait to the container; how many they are is
 * stored in `saved`, which may be NULL. What is posted later is saved within its post. QV_UNDER_WAY
 * if a hit still is, which was saved, and so may be sent twice; QV_FAILED if nothing could be
 * saved. For the main thread, say, when its loop hears of SIGTERM; never from a signal handler. */
QV_API int qv_shutdown(int milliseconds, int* saved);
/** Erases all that the kit keeps of the person and the installation, on disk and in memory, which
 * docs/privacy.md lists. What is posted afterwards is new. Needs no start. QV_FAILED when something
 * could not be removed; then it may be called again. */
QV_API int qv_erase_everything(void);
/** Holds hits until the user agent is known, and has it sent with them. */
QV_API int qv_wait_for_user_agent(void);
/** Has the core hear the requests of a partner, QV_NAME_HTTP_PARTNER_REQUEST and its name; done
 * twice, it sends each of them twice. */
QV_API int qv_add_partner(const char* partner);
/** How old hits may get and how many may wait before the oldest give way: 200,000 seconds and
 * 2,000 at first. QV_INVALID for a negative number. */
QV_API int qv_set_queue_limits(int seconds, int hits);

/* Variables of the kit (QV_VARIABLE_*). They need a start. */

/** The value as text. */
QV_API char* qv_variable(const char* name);
/** A value of NULL removes the variable. */
QV_API int qv_set_variable(const char* name, const char* value);

/* Configurations. They need a start. */

/** The numbers of the account, for configurations that are added from now on. */
QV_API int qv_set_account(int site, int container);
/** Where configurations without a URL are downloaded from: a host, or host:port. */
QV_API int qv_set_configuration_host(const char* host);
/** Takes "<name>.json" from the resource directory, and has a newer one downloaded, from the URL
 * or, if that is NULL, by name and account. The version path tells where the version is in the JSON
 * ("a/b"); with NULL the first text stays. A name that is there already stays as it is. */
QV_API int qv_add_configuration(const char* name, const char* version_path, const char* url);
/** What is at the path ("a/b"; NULL for all of it) in the configuration as it stands, as JSON;
 * "\"0\"" if that is missing, NULL if the configuration is, or is no JSON. */
QV_API char* qv_configuration_json(const char* name, const char* path);
/** The same as text, where it is a text, a number or a flag (1 or 0). */
QV_API char* qv_configuration_text(const char* name, const char* path);

/* The main queue, on which changes of the network and the web engine's answer arrive: a program has
 * a loop that watches the descriptor, or leaves its main thread to qv_main_queue_run(). */

/** Readable while something waits; belongs to the library. -1 when the system has none to give. */
QV_API int qv_main_queue_descriptor(void);
/** Runs what waits. Call it on the main thread, as the next one. */
QV_API void qv_main_queue_drain(void);
/** Runs what comes, until qv_main_queue_stop(), which may be called before. */
QV_API void qv_main_queue_run(void);
QV_API void qv_main_queue_stop(void);

/* The log; docs/log.md tells its lines and levels. */

/** Writes a line, if the level is at least QV_LOG_LEVEL. */
QV_API int qv_log(const char* line, int level);
/** A level below all others: of a line of the console log, which says that something is wrong. */
#define QV_NO_LEVEL (-1)
/** Runs on any thread, on several at once, and may call nothing of this header, since the library
 * may hold a lock. The line is gone when it returns. */
typedef void (*qv_log_sink)(const char* line, int level, void* user);
/** Takes all lines away from standard output and standard error; NULL brings these back. When it
 * returns, the sink before it runs no more. For one thread at a time, and a few times in a process:
 * a little memory stays of each sink. */
QV_API int qv_set_log_sink(qv_log_sink sink, void* user);

/** Names of notifications. One that ends in a colon and a blank, and the three of configurations,
 * are followed by a name of the program's: QV_NAME_HTTP_PARTNER_REQUEST "partner". */
#define QV_NAME_HIT_SENT "QVNotification: Hit Sent"
#define QV_NAME_HTTP_REQUEST "QVNotification: HTTP Request"
#define QV_NAME_HTTP_REQUEST_SENT "QVNotification: HTTP Request Sent"
#define QV_NAME_HTTP_REQUEST_ERROR "QVNotification: HTTP Request Error"
#define QV_NAME_HTTP_RESPONSE "QVNotification: HTTP Response"
#define QV_NAME_HTTP_PARTNER_REQUEST "QVNotification: Partner Request: "
#define QV_NAME_HTTP_PARTNER_RESPONSE "QVNotification: Partner Response: "
#define QV_NAME_SEGMENT_REQUEST "QVNotification: Segment Request"
#define QV_NAME_SEGMENT_RESPONSE "QVNotification: Segment Response"
#define QV_NAME_CONFIGURATION_REQUEST "QVNotification: Privacy Configuration Request"
#define QV_NAME_CONFIGURATION_RESPONSE "QVNotification: Privacy Configuration Response"
#define QV_NAME_CONFIGURATION_CHANGED "QVNotification: Configuration changed"
#define QV_NAME_INTERNET_UP "QVNotification: Internet Up"
#define QV_NAME_INTERNET_DOWN "QVNotification: Internet Down"
#define QV_NAME_INTERNET_CHANGED "QVNotification: Internet Changed"
#define QV_NAME_USER_AGENT_AVAILABLE "QVNotification: User Agent Available"
#define QV_NAME_ON_BACKGROUND "QVNotification On Background"
#define QV_NAME_ON_FOREGROUND "QVNotification On Foreground"
#define QV_NAME_STARTING_THE_SDK "QVNotification: Starting SDK"
#define QV_NAME_STOPPING_THE_SDK "QVNotification: Stopping SDK"

/** Keys of user info; <QVCore/QVCoreConstants.h> tells what is under them. */
#define QV_KEY_URL "url"
#define QV_KEY_POST_DATA "POSTData"
#define QV_KEY_REQUEST_ID "ID"
#define QV_KEY_CONTENT "content"
#define QV_KEY_DATA "data"
#define QV_KEY_ERROR "error"
#define QV_KEY_RESPONSE "HTTPURLResponse"
#define QV_KEY_REQUEST_TYPE "RequestType"

/** Variables. */
#define QV_VARIABLE_SDK_ID "#QV_SDK_ID#"
#define QV_VARIABLE_NORMALIZED_ID "#QV_NORMALIZED_ID#"
#define QV_VARIABLE_IDFA "#QV_IDFA#"
#define QV_VARIABLE_IDFV "#QV_IDFV#"
#define QV_VARIABLE_UNIQUE_ID "#QV_UNIQUEID#"
#define QV_VARIABLE_USER_AGENT "#QV_USER_AGENT#"
#define QV_VARIABLE_CONNEXION "#QV_CONNEXION#"

#ifdef __cplusplus
}
#endif

#endif
