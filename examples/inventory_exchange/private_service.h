/* A service of the client's own: started for one chassis description, asked, and stopped again. */
#ifndef PRIVATE_SERVICE_H
#define PRIVATE_SERVICE_H

#include <stdbool.h>
#include <sys/types.h>

struct private_service {
    pid_t process;
    int output;         /* the service's standard output, which ends when the service does */
    char directory[88]; /* holds its socket */
    char socket_path[96];
};

/* Starts the service program that stands beside this one and waits until it serves. On failure everything is put away
 * again and one line is on standard error: the service's own, if it had something to say. */
bool private_service_start(struct private_service* service, const char* chassis, double time_limit);

/* Stops the service and removes its directory. */
void private_service_stop(struct private_service* service, double time_limit);

#endif
