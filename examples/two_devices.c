/*
 * two_devices.c - a host in C with two controllers, each device kept alive by the
 * reconnect recipe as a small state machine:
 *
 *   START   InitEx with this device's own address, GetInitCmdEx2  -> CHECK (code 0)
 *   CHECK   CheckInitCmdResponseEx2 until it returns 1             -> READY
 *   READY   a round of OutputFilterEx / InputFilterEx; a failed round (status 2): Timeout
 *                                                                  -> START
 *
 * GetInitCmdEx2 connects to the address of the last InitEx, whichever device it was for,
 * so each device gives its own address every time it starts again.
 *
 * Each device writes its own value to Counter when it becomes ready (as a panel restores
 * a setpoint) and every round reads Counter from both. A device that reconnected to the
 * other controller would write its value there and the other device would read it.
 *
 *   two_devices LIBRARY IP_A IP_B TAG_FILE TAG_LIST [ROUNDS]
 *
 * Prints "both ready" once, then a line per event. Exits 0 when a device recovered from
 * a failed round and the three rounds after that read each controller's own value; 1 on
 * a wrong value, or when ROUNDS (default 300, 50 ms apart) pass without a recovery.
 */
#define _POSIX_C_SOURCE 199309L
#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "unitydrv/unitydrv.h"

static struct {
  void (*InitEx)(uint32_t, const unitydrv_init_params*);
  int (*StartDeviceEx)(uint8_t, void**, const char*, uint32_t);
  unitydrv_result (*GetInitCmdEx2)(uint32_t*, uint32_t, uint32_t, uint32_t, void**);
  int (*CheckInitCmdResponseEx2)(uint32_t, uint32_t, void**);
  unitydrv_result (*OutputFilterEx)(_gui_request_*, int);
  void (*InputFilterEx)(_input_data_*, _frame_data_*, _system_info*, int);
  void (*Timeout)(uint32_t, void*);
  void (*CloseDevice)(uint32_t, void*);
} drv;

static const struct {
  void** fn;
  const char* name;
} entry_points[] = {{(void**)&drv.InitEx, "ORMAND_DRV_InitEx"},
                    {(void**)&drv.StartDeviceEx, "ORMAND_DRV_StartDeviceEx"},
                    {(void**)&drv.GetInitCmdEx2, "ORMAND_DRV_GetInitCmdEx2"},
                    {(void**)&drv.CheckInitCmdResponseEx2, "ORMAND_DRV_CheckInitCmdResponseEx2"},
                    {(void**)&drv.OutputFilterEx, "ORMAND_DRV_OutputFilterEx"},
                    {(void**)&drv.InputFilterEx, "ORMAND_DRV_InputFilterEx"},
                    {(void**)&drv.Timeout, "ORMAND_DRV_Timeout"},
                    {(void**)&drv.CloseDevice, "ORMAND_DRV_CloseDevice"}};

static int load(const char* path) {
  size_t i;
  void* lib = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (lib == NULL) return fprintf(stderr, "two_devices: %s\n", dlerror()), 0;
  for (i = 0; i < sizeof entry_points / sizeof entry_points[0]; ++i) {
    *entry_points[i].fn = dlsym(lib, entry_points[i].name);
    if (*entry_points[i].fn == NULL)
      return fprintf(stderr, "two_devices: %s missing\n", entry_points[i].name), 0;
  }
  return 1;
}

enum link { START, CHECK, READY };

struct device {
  const char* name;
  unitydrv_init_params address;
  void* handle;
  enum link link;
  int16_t value;   /* what this device writes to Counter */
  int recoveries;  /* times it came back after a failed round */
  int failed_once; /* a round failed since the last START */
};

static int parse_address(const char* text, unitydrv_init_params* p) {
  unsigned a, b, c, d;
  char end;
  if (sscanf(text, "%u.%u.%u.%u%c", &a, &b, &c, &d, &end) != 4 || (a | b | c | d) > 255) return 0;
  memset(p, 0, sizeof *p);
  p->octet1 = (uint8_t)a;
  p->octet2 = (uint8_t)b;
  p->octet3 = (uint16_t)c;
  p->octet4 = (uint16_t)d;
  return 1;
}

/* Position of name in the list file (one name a line, empty lines skipped), or -1. */
static long tag_index(const char* list, const char* name) {
  char line[256];
  long i = 0, found = -1;
  FILE* f = fopen(list, "r");
  if (f == NULL) return -1;
  while (found < 0 && fgets(line, sizeof line, f) != NULL) {
    line[strcspn(line, "\r\n")] = '\0';
    if (line[0] == '\0') continue;
    if (strcmp(line, name) == 0) found = i;
    ++i;
  }
  fclose(f);
  return found;
}

static _gui_request_ request;
static _input_data_ result;

static void set_request(struct device* d, long tag) {
  memset(&request, 0, sizeof request);
  request.ref.tag_index = (uint32_t)tag;
  request.ref.type_code_a = UNITYDRV_TYPE_INT;
  request.ref.element_count = 1;
  request.device_handle = d->handle;
}

/* Writes the device's value to Counter. The driver does not report a write's fate: the
 * next round's read tells. */
static void write_counter(struct device* d, long tag) {
  set_request(d, tag);
  request.request_kind = 1;
  request.write.write_count = 1;
  request.write_words[0] = (uint16_t)d->value;
  drv.OutputFilterEx(&request, 1);
}

/* One round: reads Counter; 0 when the round failed, else 1 with *value set. */
static int read_counter(struct device* d, long tag, int16_t* value) {
  _system_info info;
  set_request(d, tag);
  drv.OutputFilterEx(&request, 1);
  memset(&info, 0, sizeof info);
  info.info_valid = 1;
  info.device_handle = d->handle;
  drv.InputFilterEx(&result, NULL, &info, 1);
  if (result.result_status != 0) return 0;
  *value = (int16_t)result.result_words[0];
  return 1;
}

/* One step of the device's state machine. */
static void step(struct device* d, long tag) {
  uint32_t code = 0;
  switch (d->link) {
    case START:
      drv.InitEx(0, &d->address);
      drv.GetInitCmdEx2(&code, 0, 0, 0, &d->handle);
      if (code == 0) d->link = CHECK;
      break;
    case CHECK:
      if (drv.CheckInitCmdResponseEx2(0, 0, &d->handle) != 1) break;
      d->link = READY;
      if (d->failed_once) ++d->recoveries, printf("%s: ready again\n", d->name);
      d->failed_once = 0;
      write_counter(d, tag);
      break;
    case READY:
      break;
  }
}

/* A round of a ready device: -1 a wrong value, 0 failed (the device starts again), 1 ok. */
static int round_of(struct device* d, long tag) {
  int16_t value = 0;
  if (!read_counter(d, tag, &value)) {
    printf("%s: round failed (status %u, code %u): Timeout, then start again\n", d->name,
           result.result_status, result.result_code);
    drv.Timeout(0, d->handle);
    d->link = START;
    d->failed_once = 1;
    return 0;
  }
  if (value == d->value) return 1;
  printf("%s: Counter reads %d, expected %d\n", d->name, value, d->value);
  return -1;
}

static void pause_ms(long ms) {
  struct timespec t = {0, ms * 1000000L};
  nanosleep(&t, NULL);
}

static int run(struct device* devices, long tag, int rounds) {
  int r, i, ok_after_recovery = 0, announced = 0;
  for (r = 0; r < rounds; ++r, pause_ms(50)) {
    int all_ok = 1;
    for (i = 0; i < 2; ++i) {
      step(&devices[i], tag);
      if (devices[i].link != READY)
        all_ok = 0;
      else if (round_of(&devices[i], tag) < 0)
        return 0;
      else if (devices[i].link != READY)
        all_ok = 0;
    }
    if (all_ok && !announced) announced = 1, puts("both ready"), fflush(stdout);
    if (all_ok && devices[0].recoveries + devices[1].recoveries > 0 && ++ok_after_recovery == 3)
      return 1;
    fflush(stdout);
  }
  puts("no recovery seen");
  return 0;
}

int main(int argc, char** argv) {
  struct device devices[2];
  long tag;
  int i, ok;
  memset(devices, 0, sizeof devices);
  devices[0].name = "A", devices[0].value = 111;
  devices[1].name = "B", devices[1].value = 222;
  if (argc < 6 || argc > 7 || !parse_address(argv[2], &devices[0].address) ||
      !parse_address(argv[3], &devices[1].address)) {
    fprintf(stderr, "usage: two_devices LIBRARY IP_A IP_B TAG_FILE TAG_LIST [ROUNDS]\n");
    return 2;
  }
  if (!load(argv[1])) return 1;
  tag = tag_index(argv[5], "Counter");
  if (tag < 0) return fprintf(stderr, "two_devices: Counter is not in %s\n", argv[5]), 1;
  for (i = 0; i < 2; ++i) drv.StartDeviceEx(0, &devices[i].handle, argv[4], 0);
  ok = run(devices, tag, argc == 7 ? atoi(argv[6]) : 300);
  for (i = 0; i < 2; ++i) drv.CloseDevice(0, devices[i].handle);
  puts(ok ? "ok" : "FAILED");
  return ok ? 0 : 1;
}
