#include "private_service.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "deadline.h"

static void complain(const char* what, const char* why) { fprintf(stderr, "inventory_client: %s: %s\n", what, why); }

/* The service stands in the directory of this program. */
static bool find_program(char program[PATH_MAX]) {
    static const char name[] = "inventory_service";
    ssize_t length = readlink("/proc/self/exe", program, PATH_MAX - sizeof name);
    if (length < 0) {
        complain("cannot find the service program", strerror(errno));
        return false;
    }
    program[length] = '\0';
    memcpy(strrchr(program, '/') + 1, name, sizeof name);
    return true;
}

static bool make_directory(struct private_service* service) {
    const char* parent = getenv("TMPDIR");
    if (parent == NULL || *parent == '\0') parent = "/tmp";
    int length = snprintf(service->directory, sizeof service->directory, "%s/inventory-XXXXXX", parent);
    if (length < 0 || (size_t)length >= sizeof service->directory) {
        complain(parent, "this path is too long for a socket");
        return false;
    }
    if (mkdtemp(service->directory) == NULL) {
        complain(service->directory, strerror(errno));
        return false;
    }
    snprintf(service->socket_path, sizeof service->socket_path, "%s/socket", service->directory);
    return true;
}

/* Becomes the service. Runs in the new process, where nothing but exec may fail. */
static void become_service(const struct private_service* service, const char* program, const char* chassis,
                           double time_limit, int output) {
    char limit[32];
    snprintf(limit, sizeof limit, "%.3f", time_limit);
    prctl(PR_SET_PDEATHSIG, SIGTERM); /* a client that is killed leaves no service behind */
    dup2(output, STDOUT_FILENO);
    execl(program, program, "--socket", service->socket_path, "--chassis", chassis, "--time-limit", limit, (char*)NULL);
    complain(program, strerror(errno));
    _exit(EXIT_FAILURE);
}

static bool launch(struct private_service* service, const char* program, const char* chassis, double time_limit) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        complain("cannot make a pipe", strerror(errno));
        return false;
    }
    service->process = fork();
    if (service->process == 0) become_service(service, program, chassis, time_limit, ends[1]);
    close(ends[1]);
    service->output = ends[0];
    if (service->process > 0) return true;
    complain("cannot start the service", strerror(errno));
    close(ends[0]);
    return false;
}

/* The service says one line when it serves. If it ends instead, it has said why on standard error. */
static bool wait_until_it_serves(const struct private_service* service, double time_limit) {
    int64_t deadline = deadline_in(time_limit);
    char letter = '\0';
    while (letter != '\n') {
        if (!deadline_wait(service->output, POLLIN, deadline)) {
            complain("the private service", "it did not start within the time limit");
            return false;
        }
        ssize_t count = read(service->output, &letter, 1);
        if (count == 0 || (count < 0 && errno != EINTR)) return false;
    }
    return true;
}

bool private_service_start(struct private_service* service, const char* chassis, double time_limit) {
    char program[PATH_MAX];
    if (!find_program(program) || !make_directory(service)) return false;
    if (!launch(service, program, chassis, time_limit)) {
        rmdir(service->directory);
        return false;
    }
    if (!wait_until_it_serves(service, time_limit)) {
        private_service_stop(service, time_limit);
        return false;
    }
    return true;
}

void private_service_stop(struct private_service* service, double time_limit) {
    int64_t deadline = deadline_in(time_limit);
    int status = 0;
    char rest[64];
    kill(service->process, SIGTERM);
    /* Its output ends with it. */
    while (deadline_wait(service->output, POLLIN, deadline) && read(service->output, rest, sizeof rest) > 0) continue;
    if (!deadline_wait(service->output, POLLIN, deadline)) kill(service->process, SIGKILL);
    while (waitpid(service->process, &status, 0) < 0 && errno == EINTR) continue;
    if (WIFSIGNALED(status)) complain("the private service was ended by", strsignal(WTERMSIG(status)));
    close(service->output);
    unlink(service->socket_path);
    rmdir(service->directory);
}
