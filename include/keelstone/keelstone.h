/*
 * Keelstone from C and from every language that calls C.
 *
 *   ks_set_root("/var/lib/keelstone");
 *   ks_domain_create("default", NULL, &domain);       the domain's databases, made if missing
 *   ks_domain_enroll(domain, 1);                      define variables as they come
 *   ks_run_start(domain, &info, sizeof info, &run);   one parser run on one device
 *   ks_run_add_int64(run, "prefixes", "10.0.12.2", 12);
 *   ks_run_evaluate(run);
 *   ks_run_json(run, &text, NULL);                    what was found
 *   ks_run_store(run);                                keep what was learned
 *   ks_run_close(run);
 *   ks_domain_flush(domain);                          what is pending, to the disk
 *   ks_domain_close(domain);
 *
 * Answers. Every call that can fail answers a ks_status. After anything but KS_OK,
 * ks_last_error() says in words what was wrong. No exception and no signal leaves a call.
 *
 * Handles. A ks_domain and a ks_run are numbers in the shape of pointers; they are never
 * used twice. A handle that is null, closed or of the other kind is answered with
 * KS_ERROR_HANDLE. What is not closed stays open until the process ends.
 *
 * Threads. Calls marked [any thread] may be made from any number of threads at once, also
 * on one handle. Calls marked [one thread a run] may be made from every thread, but by one
 * at a time for each run; who comes second is answered with KS_ERROR_BUSY. Different runs
 * go side by side, but those of one unit (device, source and parameter) one after the other,
 * in the order of the calls of ks_run_evaluate. Each sees what those before it have stored:
 * while a run is evaluated and not yet stored, discarded or closed, the next one of its unit
 * waits in ks_run_evaluate. A thread that would wait for a run that it has evaluated itself,
 * or for another thread that waits for one, is answered with KS_ERROR_STATE.
 *
 * Memory. What was learned of a unit stays in memory from run to run (ks_set_memory), and is
 * written by a flush. What could not be written stays there and is tried again.
 *
 * Texts. What is handed in is UTF-8, is copied, and belongs to the caller. What is handed
 * out belongs to the library, ends with a NUL and must not be freed; each call says how long
 * it lives. A length may be KS_TERMINATED for a text that ends with a NUL. A null pointer in
 * place of a text that may be left out is the empty text.
 *
 * Growth. Structures are handed over with their size: a later library fills what the caller
 * knows of them, and takes what it does not bring as zero. Members are only ever added at
 * the end. A structure to be handed in is set to zero first.
 *
 * Processes. fork() waits until no thread is inside a call, except in a log callback, and
 * until nothing is being written. The child begins with no open handle: those of its parent
 * are answered with KS_USAGE. It opens domains anew and works with them as any other
 * process does. What was pending at the fork is written by the parent only. The log callback
 * stays in place. After a fork() inside a log callback, every call in the child is answered
 * with KS_ERROR_STATE.
 */
#ifndef KEELSTONE_C_KEELSTONE_H
#define KEELSTONE_C_KEELSTONE_H

#include <stddef.h>
#include <stdint.h>

#define KS_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* The number of this interface: raised when a call is added. */
#define KS_API_VERSION 3

/* The number of the library that is loaded; not less than KS_API_VERSION. [any thread] */
KS_API int32_t ks_api_version(void);
/* The version of the library, "1.0.0"; lives for ever. [any thread] */
KS_API const char* ks_version(void);

/* What a call came to. */
typedef int32_t ks_status;
enum {
  KS_OK = 0,
  KS_ERROR_ARGUMENT = 1, /* a pointer, size, index or number that cannot be */
  KS_ERROR_HANDLE = 2,   /* no open handle of this kind */
  KS_ERROR_STATE = 3,    /* not at this point: the order of calls is wrong */
  KS_ERROR_BUSY = 4,     /* another thread is inside a call with this run */
  KS_ERROR_INPUT = 5,    /* a text or number that is no run, value, settings */
  KS_ERROR_DATABASE = 6, /* a database is missing or cannot be used */
  KS_ERROR_WRITE = 7,    /* not all could be written */
  KS_ERROR_MEMORY = 8,
  KS_ERROR_INTERNAL = 9, /* a fault of the library */
  KS_USAGE = 10          /* a handle of the process that this one was forked from */
};

/* "wrong order of calls" and the like; lives for ever. [any thread] */
KS_API const char* ks_status_text(ks_status status);
/*
 * What was wrong with the latest call of this thread that failed; "" before the first one.
 * Lives until the next call that fails on this thread, or until the thread ends.
 * [any thread]
 */
KS_API const char* ks_last_error(void);

#define KS_TERMINATED ((size_t)-1)

/* A domain that is open; see Handles. */
typedef struct ks_domain ks_domain;
/* A run that is under way; see Handles. */
typedef struct ks_run ks_run;

/* ---- The process ---------------------------------------------------------------------- */

/*
 * Sets the folder below which configuration, data and log lie. Without it: the environment
 * variable KEELSTONE_ROOT, else ./keelstone-root. Domains that have been opened stay where
 * they are: their ids cannot be opened below another root. Not while a domain or run is open:
 * KS_ERROR_STATE. [any thread]
 */
KS_API ks_status ks_set_root(const char* folder);

/*
 * Writes into the root's configuration how many seconds must pass between two values of a
 * variable that has no rule yet, for both to be kept (1800 when never set). Holds for all
 * domains of the root, from the next run that is evaluated. KS_ERROR_WRITE. [any thread]
 */
KS_API ks_status ks_set_interval_time(int32_t seconds);

/*
 * How many bytes (about) the rules and histories of devices that stay in memory from run to run
 * may take, of all domains of the process; 256 MiB at first. Those that were not used for longest
 * leave, written first. 0: none stays; each run reads what it needs, and what the run before it
 * has left is written first. [any thread]
 */
KS_API ks_status ks_set_memory(uint64_t bytes);

/* Severity of a log line. */
enum {
  KS_LOG_PROGRESS = 0,
  KS_LOG_INFORMATION = 1,
  KS_LOG_NOTICE = 2,
  KS_LOG_ERROR = 3,
  KS_LOG_NONE = 4 /* for ks_set_log_level only */
};

/*
 * Takes a log line, "function: message". `text` lives during the call; `user` is what was
 * handed to ks_set_logger. Called from the caller's threads and from the library's own, from
 * several at once, under no lock of the library. It may call the library. It must return: no
 * exception, no longjmp.
 */
typedef void (*ks_log_callback)(int32_t level, const char* text, void* user);

/*
 * Hands log lines to `callback` instead of the file log/keelstone.log below the root; null
 * goes back to the file. When it returns, the callback before is not running and will not be
 * called again, so `user` may be freed: it waits for calls that are under way on other
 * threads, so hold no lock that the callback takes. From within a callback it does not wait.
 * [any thread]
 */
KS_API ks_status ks_set_logger(ks_log_callback callback, void* user);
/* Lines of this severity and above are logged; KS_LOG_INFORMATION at first. [any thread] */
KS_API ks_status ks_set_log_level(int32_t level);

/*
 * Writes what is pending of all domains; as ks_domain_flush. A process calls it before it
 * ends: what is pending then is lost. [any thread]
 */
KS_API ks_status ks_flush(void);
/* How many writes to (reads of) databases have failed in this process. [any thread] */
KS_API uint64_t ks_failed_writes(void);
KS_API uint64_t ks_failed_reads(void);

/* ---- Domains -------------------------------------------------------------------------- */

/*
 * Opens a domain whose databases are there, in *domain. The same domain may be opened many
 * times. KS_ERROR_DATABASE: one is missing or cannot be used. [any thread]
 */
KS_API ks_status ks_domain_open(const char* id, ks_domain** domain);
/*
 * Makes what is missing of a domain's databases and opens it. `settings`, a JSON object of
 * general settings, is laid over the defaults member by member; null: the defaults. What is
 * there stays, settings too. [any thread]
 */
KS_API ks_status ks_domain_create(const char* id, const char* settings, ks_domain** domain);
/*
 * Closes the handle. Runs that were started with it stay usable. Nothing is written: see
 * ks_domain_flush. With the last handle and run of the process the memory of the units goes,
 * but for what is not written yet. [any thread]
 */
KS_API ks_status ks_domain_close(ks_domain* domain);

/*
 * Whether runs started from here on define the variables that are not defined yet (1) or
 * reject them (0, at first). [any thread]
 */
KS_API ks_status ks_domain_enroll(ks_domain* domain, int32_t on);

/* ks_domain_enroll under its former spelling. [any thread] */
KS_API ks_status ks_domain_enrol(ks_domain* domain, int32_t on);

/* What is done to values before they are judged; zero is what a domain does at first. */
typedef struct ks_domain_config {
  int32_t judge_repeated;   /* 1: values that were judged before are judged again */
  int32_t allow_duplicates; /* 1: a run may hold two values of one name and interface */
  /*
   * Seconds that the time of a run may lie ahead of the clock; 0: a day; negative: times are
   * taken as they come.
   */
  int64_t max_ahead;
} ks_domain_config;

/*
 * How runs started from here on take their values. Without switches, a value that is earlier
 * than the newest one of its variable, or of the same time and equal to it, is neither judged
 * nor learned from (`repeated` in ks_summary); what was judged last is known as long as the
 * handle is open, and from the history after that. Runs on demand are judged always. A second
 * value of one name and interface in a run is refused, and so are all values of a run whose
 * time is ahead of the clock or not later than the interval time after 1970
 * (ks_run_refusal says why). `size` is sizeof(ks_domain_config). [any thread]
 */
KS_API ks_status ks_domain_configure(ks_domain* domain, const ks_domain_config* config,
                                     size_t size);

/* The type of a value, and of a table's cell. */
enum {
  KS_NULL = 0, /* cells only */
  KS_INT64 = 1,
  KS_FLOAT = 2,
  KS_DOUBLE = 3,
  KS_STRING = 4,
  KS_TABLE = 5, /* values only */
  KS_BOOL = 6   /* cells only */
};

/*
 * Defines a variable of a source, for all devices; one that is defined stays as it is.
 * `type_code` is the caller's own code for the variable's type, which never changes; 0: the
 * usual one of `type` (KS_INT64 to KS_TABLE), which the ks_run_add calls use.
 * KS_ERROR_WRITE. [any thread]
 */
KS_API ks_status ks_domain_define(ks_domain* domain, const char* source, const char* name,
                                  int32_t type, int32_t type_code);

/*
 * Writes what is pending of the domain and returns when it is on disk. KS_ERROR_WRITE: a
 * write failed meanwhile, of this or another domain, or rows were lost since the last flush of
 * this handle. Without it the library writes what is pending once a minute. [any thread]
 */
KS_API ks_status ks_domain_flush(ks_domain* domain);

/* Databases that can be delivered from elsewhere. */
enum {
  KS_DATABASE_GLOBAL_SETTING = 9,
  KS_DATABASE_VARIABLE_RULE = 10,
  KS_DATABASE_OBJECT_RULE = 11,
  KS_DATABASE_BLOCK_SETTING = 12,
  KS_DATABASE_INTERFACE_TYPE = 13
};

/*
 * Takes a delivered database over into the domain's own of the same kind: object rules are
 * merged row by row, the others replaced whole. The file `from` is only read. What is pending
 * of the domain is written before (KS_ERROR_WRITE). Runs that are evaluated afterwards see
 * it. KS_ERROR_DATABASE: nothing was taken over, or the file could not be made smaller
 * afterwards; the log says which and why. [any thread]
 */
KS_API ks_status ks_domain_merge(ks_domain* domain, int32_t database, const char* from);

/*
 * Removes the rules and histories of every source that is not among the `count` ones in
 * `keep`, on all devices, fixed rules too. None to keep: KS_ERROR_ARGUMENT. [any thread]
 */
KS_API ks_status ks_domain_clean(ks_domain* domain, const char* const* keep, size_t count);

/*
 * Reads settings, variable definitions and block periods anew, after another process has
 * changed them. [any thread]
 */
KS_API ks_status ks_domain_reload(ks_domain* domain);

/* ---- Runs ----------------------------------------------------------------------------- */

/* One parser run on one device; the last three may be left out by most hosts. */
typedef struct ks_run_info {
  const char* device; /* required */
  const char* source; /* required: which parser */
  const char* param;  /* the parser's parameter */
  int64_t time;       /* of every value: seconds since the epoch */
  int32_t on_demand;  /* 1: check, and learn nothing */
  int32_t reserved;   /* 0 */
  const char* node_id;
  const char* node_path_schema;
  const char* structure_id;
} ks_run_info;

/* Starts a run, in *run. `size` is sizeof(ks_run_info). [any thread] */
KS_API ks_status ks_run_start(ks_domain* domain, const ks_run_info* info, size_t size,
                              ks_run** run);
/*
 * Starts a run from one JSON document with its variables, as `keelstone evaluate` reads one
 * in a line: {"time":…,"device":…,"source":…,"variables":[…]}. A document that names another
 * domain is KS_ERROR_INPUT. [any thread]
 */
KS_API ks_status ks_run_start_json(ks_domain* domain, const char* json, size_t length,
                                   ks_run** run);
/*
 * Ends a run. What was not stored is forgotten; texts of the run are gone.
 * [one thread a run]
 */
KS_API ks_status ks_run_close(ks_run* run);

/*
 * Each adds one value. `interface_value` says on which interface of the device; null: none.
 * A variable that is added twice is refused the second time (see ks_domain_config). KS_ERROR_INPUT:
 * the name is empty, a text is not UTF-8, a number is not finite. KS_ERROR_STATE after
 * ks_run_evaluate. [one thread a run]
 */
KS_API ks_status ks_run_add_int64(ks_run* run, const char* name, const char* interface_value,
                                  int64_t value);
KS_API ks_status ks_run_add_float(ks_run* run, const char* name, const char* interface_value,
                                  float value);
KS_API ks_status ks_run_add_double(ks_run* run, const char* name, const char* interface_value,
                                   double value);
KS_API ks_status ks_run_add_string(ks_run* run, const char* name, const char* interface_value,
                                   const char* text, size_t length);

/* One cell of a table. This structure never grows. */
typedef struct ks_cell {
  int32_t type;     /* KS_NULL, KS_BOOL, KS_INT64, KS_DOUBLE or KS_STRING */
  int32_t reserved; /* 0 */
  int64_t integer;  /* of KS_INT64; of KS_BOOL 0 or 1 */
  double real;      /* of KS_DOUBLE; finite */
  const char* text; /* of KS_STRING */
  size_t length;    /* of `text`; KS_TERMINATED */
} ks_cell;

/* A table: names of columns and the cells of its rows. */
typedef struct ks_table {
  const char* const* columns; /* distinct names */
  size_t column_count;
  const ks_cell* cells;    /* row after row, column_count cells each */
  size_t row_count;        /* 0 where there are no columns */
  const char* const* keys; /* the columns by which two tables are compared; null: all */
  size_t key_count;
  int32_t keep_order; /* 1: rows in another order make another table */
  int32_t reserved;   /* 0 */
} ks_table;

/* Adds a table; `size` is sizeof(ks_table). [one thread a run] */
KS_API ks_status ks_run_add_table(ks_run* run, const char* name, const char* interface_value,
                                  const ks_table* table, size_t size);
/*
 * Adds the variables of one JSON text: an array as the "variables" of a run, or one of its
 * elements. Either all are added or, with KS_ERROR_INPUT, none. [one thread a run]
 */
KS_API ks_status ks_run_add_json(ks_run* run, const char* json, size_t length);

/*
 * Has ks_run_evaluate explain every alert, for ks_run_explanations. KS_ERROR_STATE after
 * ks_run_evaluate. [one thread a run]
 */
KS_API ks_status ks_run_explain(ks_run* run);

/*
 * Evaluates the run, once, when its turn has come (see Threads). From here on results can be
 * read, and the run has its unit, until it is stored, discarded or closed. KS_ERROR_DATABASE: a
 * database of the domain cannot be used; KS_ERROR_WRITE: the definitions of new variables
 * could not be written; KS_ERROR_STATE: it would wait for its own thread. Nothing was
 * evaluated then, and it may be called again. [one thread a run]
 */
KS_API ks_status ks_run_evaluate(ks_run* run);
/*
 * Keeps what was learned, once, after ks_run_evaluate: in memory, and on disk after the next
 * flush. Results stay. A run that is not stored leaves no trace in the domain.
 * [one thread a run]
 */
KS_API ks_status ks_run_store(ks_run* run);
/*
 * Drops what was learned, after ks_run_evaluate, so that other runs of the unit need not wait for
 * this one; results stay. Of no effect after ks_run_store. [one thread a run]
 */
KS_API ks_status ks_run_discard(ks_run* run);

/* ---- Results: after ks_run_evaluate ---------------------------------------------------- */

/* What a run came to. */
typedef struct ks_summary {
  uint64_t variables;     /* values handed to the engine */
  uint64_t rejected;      /* values refused, by the engine or for their size */
  uint64_t rules;         /* rules learned or changed */
  uint64_t golden_values; /* golden values that changed */
  uint64_t alerts;
  int32_t blocked;   /* 1: the device is in a block period, nothing was learned */
  int32_t engine_on; /* 0: the domain is switched off, nothing was evaluated */
  uint64_t repeated; /* values that were judged before, and not again */
} ks_summary;

/* Fills *summary; `size` is sizeof(ks_summary). [one thread a run] */
KS_API ks_status ks_run_summary(ks_run* run, ks_summary* summary, size_t size);

/*
 * The result document, {"ruleItems":[…],"valueItems":[…],"alertItems":[…]}. `length` may be
 * null. Lives until the run is closed. [one thread a run]
 */
KS_API ks_status ks_run_json(ks_run* run, const char** text, size_t* length);

/*
 * A JSON array with one explanation an alert, in the order of the alerts, as `keelstone
 * evaluate --explain` prints them: what was expected, why, since when, and what came instead.
 * KS_ERROR_STATE without ks_run_explain. `length` may be null. Lives until the run is closed.
 * [one thread a run]
 */
KS_API ks_status ks_run_explanations(ks_run* run, const char** text, size_t* length);

/*
 * The name of a value that was rejected, in input order; `index` from 0. Lives until the run
 * is closed. [one thread a run]
 */
KS_API ks_status ks_run_rejected(ks_run* run, size_t index, const char** name);

/* A value that was rejected; all texts live until the run is closed. */
typedef struct ks_refusal {
  const char* device;
  const char* source;
  const char* interface_value;
  const char* variable;
  const char* reason; /* a clause for people: "it has no enabled definition" */
} ks_refusal;

/* As ks_run_rejected, with the reason. `size` is sizeof(ks_refusal). [one thread a run] */
KS_API ks_status ks_run_refusal(ks_run* run, size_t index, ks_refusal* refusal, size_t size);

/*
 * The items of the results. All texts live until the run is closed; one with a NUL inside
 * seems to end there, and is whole in the JSON document.
 */
typedef struct ks_rule_update {
  const char* device;
  const char* source;
  const char* param;
  const char* interface_value;
  const char* variable;
  const char* rule_name; /* "intRange" */
  const char* parameter; /* the rule's parameters as JSON */
  const char* node_id;
  const char* node_path_schema;
  int32_t rule_type;
  int32_t variable_type; /* the type code of the variable */
} ks_rule_update;

/* A golden value that changed. */
typedef struct ks_golden_value {
  const char* device;
  const char* source;
  const char* param;
  const char* interface_value;
  const char* variable;
  const char* rule_name;
  const char* value; /* the golden value as JSON */
  const char* node_id;
  const char* node_path_schema;
  const char* structure_id;
  int64_t time; /* of the value, seconds since the epoch */
  int32_t rule_type;
  int32_t variable_type;
} ks_golden_value;

/* A value that broke its rule. */
typedef struct ks_alert {
  const char* device;
  const char* source;
  const char* param;
  const char* interface_value;
  const char* interface_path;
  const char* variable;
  const char* rule_name;
  const char* parameter; /* of the rule that was broken, as JSON */
  const char* value;     /* that broke it, as text; null for variables with long names */
  const char* expected;  /* what the rule expects, in words: "always 12" */
  const char* node_id;
  const char* node_path_schema;
  int64_t time; /* of the value, seconds since the epoch */
  int32_t rule_type;
  int32_t reserved;
} ks_alert;

/*
 * Fill one item; `index` from 0 to below the number in ks_summary, `size` that of the
 * structure. [one thread a run]
 */
KS_API ks_status ks_run_rule_update(ks_run* run, size_t index, ks_rule_update* item, size_t size);
KS_API ks_status ks_run_golden_value(ks_run* run, size_t index, ks_golden_value* item, size_t size);
KS_API ks_status ks_run_alert(ks_run* run, size_t index, ks_alert* item, size_t size);

#ifdef __cplusplus
}
#endif

#endif /* KEELSTONE_C_KEELSTONE_H */
