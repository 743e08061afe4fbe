/* Drives every call of the C interface, with and without sense, as a host in C would. */
#define _POSIX_C_SOURCE 200809L
#include <math.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "keelstone/keelstone.h"

#define POLLS 24
#define BROKEN_POLL 20

static int failures = 0;

static void fail(int line, const char* what) {
  ++failures;
  fprintf(stderr, "interface_test.c:%d: %s (last error: %s)\n", line, what, ks_last_error());
}

#define CHECK(condition)                          \
  do {                                            \
    if (!(condition)) fail(__LINE__, #condition); \
  } while (0)
#define IS(expected, call) CHECK((call) == (expected))
#define OK(call) IS(KS_OK, call)
#define SAME(a, b) CHECK(strcmp(a, b) == 0)

static ks_domain* new_domain(const char* id) {
  ks_domain* domain = NULL;
  OK(ks_domain_create(id, NULL, &domain));
  OK(ks_domain_enroll(domain, 1));
  return domain;
}

static ks_run* new_run(ks_domain* domain, const char* device, int poll) {
  ks_run_info info;
  ks_run* run = NULL;
  memset(&info, 0, sizeof info);
  info.device = device;
  info.source = "bgp";
  info.param = "all";
  info.node_id = "node";
  info.node_path_schema = "schema";
  info.structure_id = "structure";
  info.time = 1700000000 + INT64_C(60) * poll;
  OK(ks_run_start(domain, &info, sizeof info, &run));
  return run;
}

static ks_status start_with(ks_domain* domain, const char* device, const char* source, int64_t time,
                            ks_run** run) {
  ks_run_info info;
  memset(&info, 0, sizeof info);
  info.device = device;
  info.source = source;
  info.time = time;
  return ks_run_start(domain, &info, sizeof info, run);
}

static ks_summary summary_of(ks_run* run) {
  ks_summary summary;
  memset(&summary, 0xFF, sizeof summary);
  OK(ks_run_summary(run, &summary, sizeof summary));
  return summary;
}

static void finish(ks_run* run) {
  OK(ks_run_evaluate(run));
  OK(ks_run_store(run));
  OK(ks_run_close(run));
}

/* The table of routes, typed: its rows turned round after the broken poll. */
static void add_routes(ks_run* run, int poll) {
  static const char* const columns[] = {"prefix", "metric", "age"};
  static const char* const keys[] = {"metric", "prefix"};
  const int swapped = poll > BROKEN_POLL;
  ks_cell cells[6];
  ks_table table;
  memset(cells, 0, sizeof cells);
  memset(&table, 0, sizeof table);
  for (int row = 0; row < 2; ++row) {
    ks_cell* cell = cells + 3 * row;
    cell[0].type = KS_STRING;
    cell[0].text = (row == swapped) ? "10.1.0.0/16trailing" : "10.2.0.0/16trailing";
    cell[0].length = 11;
    cell[1].type = KS_DOUBLE;
    cell[1].real = poll == BROKEN_POLL ? 2.5 : 1.5;
    cell[2].type = KS_INT64; /* no key: may change */
    cell[2].integer = poll;
  }
  table.columns = columns;
  table.column_count = 3;
  table.cells = cells;
  table.row_count = 2;
  table.keys = keys;
  table.key_count = 2;
  OK(ks_run_add_table(run, "routes", NULL, &table, sizeof table));
}

static void add_all(ks_run* run, int poll) {
  const int broken = poll == BROKEN_POLL;
  char json[256];
  OK(ks_run_add_int64(run, "prefixes", "10.0.12.2", broken ? 0 : 12));
  OK(ks_run_add_float(run, "load", "", broken ? 9.5F : 0.1F));
  OK(ks_run_add_double(run, "share", NULL, broken ? 9.5 : 0.25));
  OK(ks_run_add_string(run, "state", "10.0.12.2", broken ? "Idle" : "Established!",
                       broken ? KS_TERMINATED : 11));
  add_routes(run, poll);
  /* What the typed table holds, written as a document: they must come to one digest. */
  snprintf(
      json, sizeof json,
      "[{\"name\":\"routes2\",\"keys\":[\"prefix\",\"metric\"],\"value\":[{\"prefix\":\"10.2.0.0/"
      "16\",\"metric\":%s},{\"prefix\":\"10.1.0.0/16\",\"metric\":%s}]},"
      "{\"name\":\"unread\",\"value\":null}]",
      broken ? "2.5" : "1.5", broken ? "2.5" : "1.5");
  OK(ks_run_add_json(run, json, strlen(json)));
}

static int has_alert(ks_run* run, const char* variable, ks_alert* alert) {
  const ks_summary summary = summary_of(run);
  for (size_t i = 0; i < summary.alerts; ++i) {
    OK(ks_run_alert(run, i, alert, sizeof *alert));
    if (strcmp(alert->variable, variable) == 0) return 1;
  }
  return 0;
}

static void check_broken(ks_run* run) {
  static const char* const variables[] = {"prefixes", "load",   "share",
                                          "state",    "routes", "routes2"};
  char digest[64] = "";
  const char* json = NULL;
  size_t length = 0;
  ks_alert alert;
  for (size_t i = 0; i < sizeof variables / sizeof *variables; ++i) {
    CHECK(has_alert(run, variables[i], &alert));
    SAME(alert.device, "r1");
    SAME(alert.source, "bgp");
    SAME(alert.param, "all");
    SAME(alert.node_id, "node");
    SAME(alert.node_path_schema, "schema");
    CHECK(alert.time == 1700000000 + 60 * BROKEN_POLL);
    if (strncmp(variables[i], "routes", 6) != 0) continue;
    SAME(alert.rule_name, "tableMd5");
    CHECK(strlen(alert.value) == 32);
    if (*digest == '\0') snprintf(digest, sizeof digest, "%s", alert.value);
    SAME(alert.value, digest);
  }
  CHECK(summary_of(run).alerts == 6);
  CHECK(has_alert(run, "prefixes", &alert));
  SAME(alert.parameter, "{\"ruleParam\":12}");
  SAME(alert.value, "0");
  SAME(alert.expected, "always 12");
  SAME(alert.interface_value, "10.0.12.2");
  SAME(alert.rule_name, "intEqual");
  OK(ks_run_json(run, &json, &length));
  CHECK(strlen(json) == length && strstr(json, "\"alertItems\":[{") != NULL);
  OK(ks_run_explanations(run, &json, &length));
  CHECK(strlen(json) == length && strstr(json, "\"variable\":\"prefixes\"") != NULL);
  IS(KS_ERROR_ARGUMENT, ks_run_alert(run, 6, &alert, sizeof alert));
  IS(KS_ERROR_ARGUMENT, ks_run_alert(run, 0, &alert, sizeof alert - 1));
  IS(KS_ERROR_ARGUMENT, ks_run_alert(run, 0, NULL, sizeof alert));
}

static void check_learned(ks_run* run) {
  const ks_summary summary = summary_of(run);
  ks_rule_update rule;
  ks_golden_value golden;
  int prefixes = 0;
  for (size_t i = 0; i < summary.rules; ++i) {
    OK(ks_run_rule_update(run, i, &rule, sizeof rule));
    SAME(rule.device, "r1");
    if (strcmp(rule.variable, "prefixes") != 0) continue;
    ++prefixes;
    SAME(rule.parameter, "{\"ruleParam\":12}");
    CHECK(rule.variable_type == 1);
  }
  for (size_t i = 0; i < summary.golden_values; ++i) {
    OK(ks_run_golden_value(run, i, &golden, sizeof golden));
    SAME(golden.structure_id, "structure");
    if (strcmp(golden.variable, "load") != 0) continue;
    ++prefixes;
    CHECK(strstr(golden.value, "0.1") != NULL && golden.time > 1700000000);
  }
  CHECK(prefixes == 2);
  IS(KS_ERROR_ARGUMENT, ks_run_rule_update(run, summary.rules, &rule, sizeof rule));
  IS(KS_ERROR_ARGUMENT, ks_run_golden_value(run, summary.golden_values, &golden, sizeof golden));
}

/* The whole way of a device: learned, broken once, quiet again though rows change places. */
static void learns_and_alerts(void) {
  ks_domain* domain = new_domain("learns");
  int learned = 0;
  for (int poll = 0; poll < POLLS; ++poll) {
    ks_run* run = new_run(domain, "r1", poll);
    ks_summary summary;
    add_all(run, poll);
    OK(ks_run_explain(run));
    OK(ks_run_evaluate(run));
    IS(KS_ERROR_STATE, ks_run_explain(run));
    summary = summary_of(run);
    CHECK(summary.variables == 6 && summary.rejected == 0);
    CHECK(summary.blocked == 0 && summary.engine_on == 1);
    if (summary.rules == 6) {
      ++learned;
      check_learned(run);
    }
    if (poll == BROKEN_POLL) {
      check_broken(run);
    } else {
      CHECK(summary.alerts == 0);
    }
    OK(ks_run_store(run));
    OK(ks_run_close(run));
  }
  CHECK(learned == 1);
  OK(ks_domain_flush(domain));
  OK(ks_domain_close(domain));
}

/* A domain in which "prefixes" of r1 is learned to be 12. */
static ks_domain* learned_domain(const char* id) {
  ks_domain* domain = new_domain(id);
  for (int poll = 0; poll < BROKEN_POLL; ++poll) {
    ks_run* run = new_run(domain, "r1", poll);
    OK(ks_run_add_int64(run, "prefixes", NULL, 12));
    OK(ks_run_evaluate(run));
    OK(ks_run_store(run));
    OK(ks_run_close(run));
  }
  OK(ks_domain_flush(domain));
  return domain;
}

static int alerts_of(ks_domain* domain) {
  ks_run* run = NULL;
  int alerts;
  OK(ks_run_start_json(
      domain,
      "{\"time\":1700009000,\"device\":\"r1\",\"source\":\"bgp\",\"param\":\"all\","
      "\"onDemand\":true,\"variables\":[{\"name\":\"prefixes\",\"value\":0}]}",
      KS_TERMINATED, &run));
  OK(ks_run_evaluate(run));
  alerts = (int)summary_of(run).alerts;
  OK(ks_run_close(run));
  return alerts;
}

static void merges_and_cleans(const char* root) {
  static const char* const kept[] = {"ospf", "bgp"};
  ks_domain* from = learned_domain("from");
  ks_domain* to = new_domain("to");
  char file[4096];
  snprintf(file, sizeof file, "%s/data/FSParserData/from/KSObjectRule.db", root);
  /* The definition that a merged rule needs comes with enrollment; histories stay. */
  CHECK(alerts_of(to) == 0);
  OK(ks_domain_merge(to, KS_DATABASE_OBJECT_RULE, file));
  CHECK(alerts_of(to) == 1);
  IS(KS_ERROR_DATABASE, ks_domain_merge(to, KS_DATABASE_GLOBAL_SETTING, "/nowhere/K.db"));
  IS(KS_ERROR_ARGUMENT, ks_domain_merge(to, KS_DATABASE_OBJECT_RULE, NULL));
  IS(KS_ERROR_ARGUMENT, ks_domain_merge(to, 1000, file));
  OK(ks_domain_clean(to, kept, 2));
  CHECK(alerts_of(to) == 1);
  IS(KS_ERROR_ARGUMENT, ks_domain_clean(to, kept, 0));
  IS(KS_ERROR_ARGUMENT, ks_domain_clean(to, NULL, 1));
  OK(ks_domain_clean(to, kept, 1));
  CHECK(alerts_of(to) == 0);
  OK(ks_domain_reload(to));
  OK(ks_domain_close(from));
  OK(ks_domain_close(to));
}

static void rejects_what_is_not_defined(void) {
  const char* name = NULL;
  ks_domain* domain = NULL;
  ks_refusal refusal;
  ks_run* run;
  OK(ks_domain_create("defines", "{\"intRange\":{\"stdCoefficient\":4}}", &domain));
  OK(ks_domain_define(domain, "bgp", "state", KS_STRING, 0));
  IS(KS_ERROR_ARGUMENT, ks_domain_define(domain, "bgp", "state", KS_BOOL, 0));
  IS(KS_ERROR_ARGUMENT, ks_domain_define(domain, NULL, "state", KS_STRING, 0));
  run = new_run(domain, "r1", 0);
  OK(ks_run_add_string(run, "state", NULL, "up", 2));
  OK(ks_run_add_int64(run, "unknown", NULL, 1));
  OK(ks_run_evaluate(run));
  CHECK(summary_of(run).rejected == 1);
  OK(ks_run_rejected(run, 0, &name));
  SAME(name, "unknown");
  IS(KS_ERROR_ARGUMENT, ks_run_rejected(run, 1, &name));
  OK(ks_run_refusal(run, 0, &refusal, sizeof refusal));
  SAME(refusal.device, "r1");
  SAME(refusal.source, "bgp");
  SAME(refusal.interface_value, "");
  SAME(refusal.variable, "unknown");
  SAME(refusal.reason, "it has no enabled definition");
  IS(KS_ERROR_ARGUMENT, ks_run_refusal(run, 1, &refusal, sizeof refusal));
  OK(ks_run_store(run));
  OK(ks_run_close(run));
  OK(ks_domain_close(domain));
}

/* What comes of one value that is added twice. */
static ks_summary summary_of_two(ks_domain* domain) {
  ks_run* run = new_run(domain, "r1", 1);
  ks_summary summary;
  OK(ks_run_add_int64(run, "peers", NULL, 12));
  OK(ks_run_add_int64(run, "peers", NULL, 12));
  OK(ks_run_evaluate(run));
  summary = summary_of(run);
  OK(ks_run_store(run));
  OK(ks_run_close(run));
  return summary;
}

static void turns_away_what_it_is_told_to(void) {
  ks_domain_config config = {0};
  ks_domain* domain = NULL;
  ks_summary first, again, off;
  OK(ks_domain_create("configured", NULL, &domain));
  OK(ks_domain_enrol(domain, 1));
  first = summary_of_two(domain);
  again = summary_of_two(domain);
  CHECK(first.variables == 1 && first.rejected == 1 && first.repeated == 0);
  CHECK(again.variables == 0 && again.rejected == 1 && again.repeated == 1);
  config.judge_repeated = 1;
  config.allow_duplicates = 1;
  config.max_ahead = -1;
  OK(ks_domain_configure(domain, &config, sizeof config));
  off = summary_of_two(domain);
  CHECK(off.variables == 2 && off.rejected == 0 && off.repeated == 0);
  IS(KS_ERROR_ARGUMENT, ks_domain_configure(domain, &config, sizeof config - 1));
  OK(ks_domain_close(domain));
}

static void answers_bad_input(void) {
  static const char* const documents[] = {"[",
                                          "[{\"name\":\"a\",\"value\":1},{\"name\":2,\"value\":1}]",
                                          "{\"name\":\"a\",\"value\":\"\xff\"}"};
  static const char* const columns[] = {"a", "a"};
  ks_domain* domain = new_domain("bad");
  ks_domain* none = domain;
  ks_run* run = NULL;
  ks_cell cell;
  ks_table table;
  struct {
    ks_run_info known;
    int64_t later;
  } newer;

  IS(KS_ERROR_INPUT, ks_domain_create("bad2", "{", &none));
  CHECK(none == NULL && strncmp(ks_last_error(), "settings: not JSON", 18) == 0);
  IS(KS_ERROR_DATABASE, ks_domain_open("bad2", &none));
  IS(KS_ERROR_INPUT, ks_domain_open("\xff", &none));
  IS(KS_ERROR_ARGUMENT, ks_domain_open(NULL, &none));
  IS(KS_ERROR_ARGUMENT, ks_domain_open("bad", NULL));
  IS(KS_ERROR_ARGUMENT, ks_domain_enroll(domain, 2));

  IS(KS_ERROR_ARGUMENT, start_with(domain, NULL, "s", 0, &run));
  IS(KS_ERROR_ARGUMENT, start_with(domain, "d", NULL, 0, &run));
  IS(KS_ERROR_INPUT, start_with(domain, "d", "\xc0", 0, &run));
  IS(KS_ERROR_ARGUMENT, ks_run_start(domain, NULL, sizeof(ks_run_info), &run));
  IS(KS_ERROR_INPUT,
     ks_run_start_json(domain,
                       "{\"time\":1,\"domain\":\"other\",\"device\":\"d\",\"source\":\"s\","
                       "\"variables\":[]}",
                       KS_TERMINATED, &run));
  IS(KS_ERROR_ARGUMENT, ks_run_start_json(domain, NULL, 0, &run));
  CHECK(run == NULL);

  /* A caller that knows more members than the library. */
  memset(&newer, 0, sizeof newer);
  newer.known.device = "d";
  newer.known.source = "s";
  OK(ks_run_start(domain, &newer.known, sizeof newer, &run));
  OK(ks_run_close(run));
  newer.later = 1;
  IS(KS_ERROR_ARGUMENT, ks_run_start(domain, &newer.known, sizeof newer, &run));
  IS(KS_ERROR_ARGUMENT, ks_run_start(domain, &newer.known, 8, &run));

  run = new_run(domain, "r1", 0);
  for (size_t i = 0; i < sizeof documents / sizeof *documents; ++i) {
    IS(KS_ERROR_INPUT, ks_run_add_json(run, documents[i], KS_TERMINATED));
    CHECK(*ks_last_error() != '\0');
  }
  IS(KS_ERROR_ARGUMENT, ks_run_add_json(run, NULL, 3));
  IS(KS_ERROR_ARGUMENT, ks_run_add_int64(run, NULL, NULL, 1));
  IS(KS_ERROR_INPUT, ks_run_add_int64(run, "", NULL, 1));
  IS(KS_ERROR_INPUT, ks_run_add_int64(run, "a", "\xed\xa0\x80", 1));
  IS(KS_ERROR_INPUT, ks_run_add_double(run, "a", NULL, NAN));
  IS(KS_ERROR_INPUT, ks_run_add_float(run, "a", NULL, (float)INFINITY));
  IS(KS_ERROR_INPUT, ks_run_add_string(run, "a", NULL, "\x80", 1));
  IS(KS_ERROR_ARGUMENT, ks_run_add_string(run, "a", NULL, NULL, 4));

  memset(&cell, 0, sizeof cell);
  memset(&table, 0, sizeof table);
  table.columns = columns;
  table.column_count = 1;
  table.row_count = 1;
  IS(KS_ERROR_ARGUMENT, ks_run_add_table(run, "t", NULL, &table, sizeof table)); /* no cells */
  table.cells = &cell;
  IS(KS_ERROR_ARGUMENT, ks_run_add_table(run, "t", NULL, &table, 4));
  cell.type = 99;
  IS(KS_ERROR_ARGUMENT, ks_run_add_table(run, "t", NULL, &table, sizeof table));
  cell.type = KS_DOUBLE;
  cell.real = NAN;
  IS(KS_ERROR_INPUT, ks_run_add_table(run, "t", NULL, &table, sizeof table));
  table.column_count = 2;
  table.row_count = 0;
  IS(KS_ERROR_INPUT, ks_run_add_table(run, "t", NULL, &table, sizeof table)); /* one name twice */
  table.column_count = 0;
  table.row_count = SIZE_MAX;
  IS(KS_ERROR_ARGUMENT, ks_run_add_table(run, "t", NULL, &table, sizeof table));

  /* None of all that was added. */
  OK(ks_run_evaluate(run));
  CHECK(summary_of(run).variables == 0);
  OK(ks_run_close(run));
  OK(ks_domain_close(domain));
}

static void answers_wrong_order_and_dead_handles(void) {
  const char* text = NULL;
  ks_summary summary;
  ks_domain* domain = new_domain("order");
  ks_run* run = new_run(domain, "r1", 0);
  IS(KS_ERROR_STATE, ks_run_store(run));
  IS(KS_ERROR_STATE, ks_run_discard(run));
  IS(KS_ERROR_STATE, ks_run_json(run, &text, NULL));
  IS(KS_ERROR_STATE, ks_run_summary(run, &summary, sizeof summary));
  IS(KS_ERROR_STATE, ks_set_root("/tmp"));
  SAME(ks_last_error(), "a domain or a run is open");

  /* The run outlives its domain's handle. */
  OK(ks_domain_close(domain));
  IS(KS_ERROR_STATE, ks_set_root("/tmp"));
  OK(ks_run_add_int64(run, "a", NULL, 1));
  OK(ks_run_evaluate(run));
  IS(KS_ERROR_STATE, ks_run_evaluate(run));
  IS(KS_ERROR_STATE, ks_run_add_int64(run, "a", NULL, 1));
  IS(KS_ERROR_STATE, ks_run_add_json(run, "[]", 2));
  IS(KS_ERROR_ARGUMENT, ks_run_json(run, NULL, NULL));
  OK(ks_run_store(run));
  IS(KS_ERROR_STATE, ks_run_store(run));
  OK(ks_run_json(run, &text, NULL));
  IS(KS_ERROR_STATE, ks_run_explanations(run, &text, NULL));
  OK(ks_run_discard(run)); /* it is stored already */

  IS(KS_ERROR_HANDLE, ks_run_evaluate((ks_run*)domain));
  IS(KS_ERROR_HANDLE, ks_domain_flush((ks_domain*)run));
  IS(KS_ERROR_HANDLE, ks_domain_close(domain));
  IS(KS_ERROR_HANDLE, ks_domain_enroll(domain, 1));
  IS(KS_ERROR_HANDLE, ks_domain_enrol(domain, 1));
  IS(KS_ERROR_HANDLE, ks_domain_reload(NULL));
  OK(ks_run_close(run));
  IS(KS_ERROR_HANDLE, ks_run_close(run));
  SAME(ks_last_error(), "the run is not open");
  IS(KS_ERROR_HANDLE, start_with(domain, "d", "s", 0, &run));
  CHECK(run == NULL);
  IS(KS_ERROR_HANDLE, ks_run_close(run));
  SAME(ks_last_error(), "the run is null");
  IS(KS_ERROR_HANDLE, ks_run_add_int64(run, "a", NULL, 1));
}

static ks_run* logged_run = NULL;
static ks_status inside = KS_OK;

static void meddle(int32_t level, const char* text, void* user) {
  (void)level;
  CHECK(strchr(text, ':') != NULL);
  if (logged_run != NULL) inside = ks_run_add_int64(logged_run, "b", NULL, 1);
  *(int*)user += 1;
}

static void one_call_at_a_time_is_inside_a_run(void) {
  int lines = 0;
  ks_domain* domain = new_domain("busy");
  ks_run* run = new_run(domain, "r1", 0);
  OK(ks_run_add_int64(run, "a", NULL, 1));
  OK(ks_set_logger(meddle, &lines));
  logged_run = run;
  OK(ks_set_log_level(KS_LOG_PROGRESS));
  OK(ks_run_evaluate(run)); /* logs its timings */
  OK(ks_set_log_level(KS_LOG_ERROR));
  logged_run = NULL;
  OK(ks_set_logger(NULL, NULL));
  CHECK(lines > 0);
  IS(KS_ERROR_BUSY, inside);
  CHECK(summary_of(run).variables == 1);
  OK(ks_run_close(run));
  OK(ks_domain_close(domain));
}

/* ---- Several threads ---- */

struct watcher {
  ks_domain* domain;
  ks_run* shared;
  const char* device;
  int bad;
  unsigned added;
};

static void* watch(void* user) {
  struct watcher* self = user;
  for (int poll = 0; poll < POLLS; ++poll) {
    ks_run* run = new_run(self->domain, self->device, poll);
    add_all(run, poll);
    OK(ks_run_evaluate(run));
    self->bad += (int)summary_of(run).alerts;
    OK(ks_run_store(run));
    OK(ks_run_close(run));
    const ks_status status = ks_run_add_int64(self->shared, "shared", NULL, poll);
    CHECK(status == KS_OK || status == KS_ERROR_BUSY);
    if (status == KS_OK) ++self->added;
  }
  CHECK(*ks_last_error() == '\0' || strcmp(ks_last_error(), "another call is inside the run") == 0);
  return NULL;
}

struct listener {
  pthread_mutex_t mutex;
  int closed;
  long lines;
};

static void listen_to(int32_t level, const char* text, void* user) {
  struct listener* self = user;
  (void)level;
  (void)text;
  pthread_mutex_lock(&self->mutex);
  CHECK(!self->closed);
  ++self->lines;
  pthread_mutex_unlock(&self->mutex);
}

/* The child has nothing open, whatever the threads of its parent were doing, and works. */
static void work_in_a_child(ks_domain* domain, ks_run* run) {
  const pid_t child = fork();
  int answer = -1;
  if (child == 0) {
    failures = 0;
    OK(ks_set_logger(NULL, NULL)); /* a parent's thread may have the listener's mutex */
    IS(KS_USAGE, ks_domain_flush(domain));
    CHECK(strstr(ks_last_error(), "before fork()") != NULL);
    IS(KS_USAGE, ks_run_add_int64(run, "a", NULL, 1));
    IS(KS_USAGE, ks_run_close(run));
    IS(KS_USAGE, ks_domain_close(domain));
    domain = new_domain("forked");
    finish(new_run(domain, "r1", 0));
    OK(ks_domain_flush(domain));
    OK(ks_domain_close(domain));
    _exit(failures);
  }
  CHECK(waitpid(child, &answer, 0) == child && answer == 0);
}

/* Two devices at once on one domain, both also on one run, while the logger is replaced
 * again and again and children are forked: nobody calls a listener that was taken back. */
static void threads_keep_apart(void) {
  ks_domain* domain = new_domain("threads");
  ks_run* shared = new_run(domain, "shared", 0);
  struct watcher watchers[2];
  pthread_t threads[2];
  long lines = 0;
  memset(watchers, 0, sizeof watchers);
  OK(ks_set_log_level(KS_LOG_PROGRESS));
  for (int i = 0; i < 2; ++i) {
    watchers[i].domain = domain;
    watchers[i].shared = shared;
    watchers[i].device = i == 0 ? "r1" : "r2";
    CHECK(pthread_create(&threads[i], NULL, watch, &watchers[i]) == 0);
  }
  for (int i = 0; i < 200; ++i) {
    struct listener* listener = calloc(1, sizeof *listener);
    pthread_mutex_init(&listener->mutex, NULL);
    OK(ks_set_logger(listen_to, listener));
    nanosleep(&(struct timespec){0, 500000}, NULL);
    if (i % 10 == 0) work_in_a_child(domain, shared);
    OK(ks_set_logger(NULL, NULL));
    listener->closed = 1;
    lines += listener->lines;
    pthread_mutex_destroy(&listener->mutex);
    free(listener);
  }
  for (int i = 0; i < 2; ++i) {
    pthread_join(threads[i], NULL);
    CHECK(watchers[i].bad == 6);
  }
  OK(ks_set_log_level(KS_LOG_ERROR));
  CHECK(lines > 0);
  OK(ks_run_evaluate(shared));
  CHECK(summary_of(shared).variables == 1); /* all are of one variable */
  CHECK(summary_of(shared).rejected == watchers[0].added + watchers[1].added - 1);
  finish(new_run(domain, "r3", 0));
  OK(ks_run_close(shared));
  OK(ks_domain_close(domain));
}

static void* wait_for_a_turn(void* run) {
  finish(run);
  return NULL;
}

/* A run has its unit until it is stored, discarded or closed. */
static void runs_of_a_unit_take_turns(void) {
  ks_domain* domain = new_domain("turns");
  for (int way = 0; way < 3; ++way) {
    ks_run* first = new_run(domain, "r1", 2 * way);
    ks_run* second = new_run(domain, "r1", 2 * way + 1);
    pthread_t thread;
    OK(ks_run_add_int64(first, "a", NULL, 1));
    OK(ks_run_add_int64(second, "a", NULL, 1));
    OK(ks_run_evaluate(first));
    IS(KS_ERROR_STATE, ks_run_evaluate(second)); /* it would wait for its own thread */
    CHECK(strstr(ks_last_error(), "this thread has evaluated") != NULL);
    CHECK(pthread_create(&thread, NULL, wait_for_a_turn, second) == 0);
    work_in_a_child(domain, first); /* though a thread is in ks_run_evaluate */
    if (way == 0) OK(ks_run_store(first));
    if (way == 1) OK(ks_run_discard(first));
    if (way == 1) IS(KS_ERROR_STATE, ks_run_store(first));
    OK(ks_run_close(first));
    pthread_join(thread, NULL);
  }
  OK(ks_domain_close(domain));
}

static void domains_stay_below_their_root(const char* root, const char* other) {
  ks_domain* domain = new_domain("rooted");
  OK(ks_domain_close(domain));
  OK(ks_set_root(other));
  IS(KS_ERROR_STATE, ks_domain_create("rooted", NULL, &domain));
  OK(ks_domain_create("rooted elsewhere", NULL, &domain));
  OK(ks_domain_close(domain));
  OK(ks_set_root(root));
  OK(ks_domain_open("rooted", &domain));
  OK(ks_domain_close(domain));
}

int main(void) {
  char root[] = "/tmp/keelstone-c-XXXXXX";
  char other[64];
  char remove[128];
  if (mkdtemp(root) == NULL) return 2;
  snprintf(other, sizeof other, "%s/other", root);

  SAME(ks_last_error(), "");
  CHECK(ks_api_version() == KS_API_VERSION);
  CHECK(ks_version()[0] >= '1');
  for (ks_status status = KS_OK; status <= KS_USAGE; ++status) {
    CHECK(strcmp(ks_status_text(status), ks_status_text(-1)) != 0);
  }
  OK(ks_set_root(root));
  IS(KS_ERROR_ARGUMENT, ks_set_root(""));
  OK(ks_set_interval_time(30));
  IS(KS_ERROR_ARGUMENT, ks_set_interval_time(-1));
  OK(ks_set_memory(UINT64_MAX));
  OK(ks_set_log_level(KS_LOG_ERROR));
  IS(KS_ERROR_ARGUMENT, ks_set_log_level(5));

  learns_and_alerts();
  OK(ks_set_memory(0)); /* from here on each run reads what it needs */
  merges_and_cleans(root);
  OK(ks_set_memory(1 << 20));
  rejects_what_is_not_defined();
  turns_away_what_it_is_told_to();
  answers_bad_input();
  answers_wrong_order_and_dead_handles();
  one_call_at_a_time_is_inside_a_run();
  threads_keep_apart();
  runs_of_a_unit_take_turns();
  domains_stay_below_their_root(root, other);

  OK(ks_flush());
  CHECK(ks_failed_reads() == 0);
  CHECK(ks_failed_writes() <= 1); /* the merge from a file that is not there */
  snprintf(remove, sizeof remove, "rm -rf %s", root);
  if (failures == 0 && system(remove) != 0) return 2;
  return failures == 0 ? 0 : 1;
}
