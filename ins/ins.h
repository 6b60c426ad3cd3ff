/* SPDX-License-Identifier: MIT */
#pragma once

#include <ins/Export.h>

/** \file
 * The engine for programs in C and in every language that can call C: twelve functions, no types but
 * an opaque one.
 *
 *     ins_run* run;
 *     ins_load_product("/kit/product.ini");
 *     if (ins_open("/kit/install.ini", &run) == 0 && ins_start_install(run, 0) == 0) {
 *         while (ins_poll(run, &done, &all) == INS_RUNNING) { ... }
 *     }
 *     if (ins_error_code(run) != 0) { puts(ins_error_text(run)); }
 *     ins_close(run);
 *
 * Statuses are 0 or the code of an error (docs/errors.md); no exception leaves a function. A run is
 * used by one thread, save ins_stop, which any thread may call until ins_close. Texts are UTF-8.
 */

#ifdef __cplusplus
extern "C" {
#endif

/** A run: one installation or removal, from ins_open to ins_close. */
typedef struct ins_run ins_run;

/** What ins_poll answers. */
enum { INS_RUNNING = 0, INS_DONE = 1, INS_FAILED = -1 };

/** Called on the run's own thread, also for each 64 KiB of a copy: `percentage` is 0 to 100 of what
 * `status` names, or negative where there is none. It must not call anything here but ins_stop. */
typedef void (*ins_callback)(const char* status, double percentage, void* context);

/** The version of the library, as "1.0.0". It is not to be freed. */
INS_EXPORT const char* ins_version(void);

/** Reads a kit's product.ini; its directory becomes $pathSource$. For the whole process, before
 * ins_open. */
INS_EXPORT unsigned ins_load_product(const char* productFile);

/** Opens a kit's script and the setup log. `*opened` is a run also where that fails, for its error,
 * and is to be closed; NULL only without memory. Error 99 unless the caller is root. */
INS_EXPORT unsigned ins_open(const char* script, ins_run** opened);

/** Before the start; a callback of NULL is none. `context` is given to it as it is. */
INS_EXPORT void ins_set_callback(ins_run* run, ins_callback callback, void* context);

/** Loads the script's rules and starts to install, or to upgrade what is installed. A path of NULL is
 * where the product is installed, or the script's default. */
INS_EXPORT unsigned ins_start_install(ins_run* run, const char* path);

/** The same for the removal of what is installed; error 64 where nothing is. */
INS_EXPORT unsigned ins_start_removal(ins_run* run);

/** Waits for a moment, and tells whether the run goes on, and how many rules of how many are done.
 * Both pointers may be NULL. INS_FAILED also where nothing was started. */
INS_EXPORT int ins_poll(ins_run* run, unsigned* rulesDone, unsigned* rulesAll);

/** Asks the run to stop, and returns at once; poll it until it has. It ends with error 66. */
INS_EXPORT void ins_stop(ins_run* run);

/** What the rule at work said last; empty before. It lives until the next call with this run. */
INS_EXPORT const char* ins_status(ins_run* run);

/** The code of the last error of this run; 0 without one. */
INS_EXPORT unsigned ins_error_code(const ins_run* run);

/** The same in words, empty without one. It lives until the next call with this run. */
INS_EXPORT const char* ins_error_text(const ins_run* run);

/** Ends its use. A run that goes on is stopped, and waited for. NULL is fine. */
INS_EXPORT void ins_close(ins_run* run);

#ifdef __cplusplus
}
#endif
