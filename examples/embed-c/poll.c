/*
 * A small host of Keelstone in C: it polls one router and prints what was found.
 *
 *   usage: poll-c ROOT
 *
 * The router is made up: r1 loses a neighbour at the 20th poll.
 */
#include <inttypes.h>
#include <keelstone/keelstone.h>
#include <stdio.h>

static int failed(const char* what) {
  fprintf(stderr, "%s: %s\n", what, ks_last_error());
  return 1;
}

/* One parser run: values in, findings out, what was learned kept. */
static ks_status evaluate(ks_domain* domain, int poll) {
  const ks_run_info info = {
      .device = "r1", .source = "bgp_summary", .time = 1700000000 + 60 * poll};
  const int lost = poll == 20;
  ks_run* run;
  ks_summary found;
  ks_status status = ks_run_start(domain, &info, sizeof info, &run);
  if (status != KS_OK) return status;

  status =
      ks_run_add_string(run, "state", "10.0.12.2", lost ? "Idle" : "Established", KS_TERMINATED);
  if (status == KS_OK) status = ks_run_add_int64(run, "prefixes", "10.0.12.2", lost ? 0 : 12);
  if (status == KS_OK) status = ks_run_evaluate(run);
  if (status == KS_OK) status = ks_run_summary(run, &found, sizeof found);
  for (size_t i = 0; status == KS_OK && i < found.alerts; ++i) {
    ks_alert alert;
    status = ks_run_alert(run, i, &alert, sizeof alert);
    if (status != KS_OK) break;
    printf("%" PRId64 " %s %s %s is %s: expected %s\n", alert.time, alert.device,
           alert.interface_value, alert.variable, alert.value, alert.expected);
  }
  if (status == KS_OK) status = ks_run_store(run);
  ks_run_close(run);
  return status;
}

static void print_line(int32_t level, const char* text, void* user) {
  (void)level;
  fprintf((FILE*)user, "%s\n", text);
}

int main(int argc, char** argv) {
  ks_domain* domain;
  if (argc != 2) return fprintf(stderr, "usage: poll-c ROOT\n"), 2;
  if (ks_set_root(argv[1]) != KS_OK) return failed("root");
  ks_set_logger(print_line, stderr);
  ks_set_log_level(KS_LOG_ERROR);
  if (ks_set_interval_time(30) != KS_OK) return failed("interval time");
  if (ks_domain_create("default", NULL, &domain) != KS_OK) return failed("domain");
  ks_domain_enroll(domain, 1);

  for (int poll = 0; poll < 24; ++poll) {
    if (evaluate(domain, poll) != KS_OK) return failed("run");
  }

  /* What is pending when the process ends is lost. */
  if (ks_domain_flush(domain) != KS_OK) return failed("flush");
  ks_domain_close(domain);
  return 0;
}
