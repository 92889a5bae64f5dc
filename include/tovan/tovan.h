// tovan.h: the whole exported interface of the library.
//
// Where to start: service_installation.h for services, tovan_config_file.h and service_cache_file.h for what is
// configured and installed, framework_location.h for where things lie, shared_storage.h for folders that hosts share.
#pragma once

#include <tovan/args_builder.h>
#include <tovan/cf_util.h>
#include <tovan/cluster_prefs.h>
#include <tovan/constants.h>
#include <tovan/daemon_control.h>
#include <tovan/dn_shared_storage_client.h>
#include <tovan/dn_shared_storage_server.h>
#include <tovan/dynamic_instances.h>
#include <tovan/file_util.h>
#include <tovan/framework_location.h>
#include <tovan/global_logger.h>
#include <tovan/host_perf_score_file.h>
#include <tovan/launch_ctl.h>
#include <tovan/launchctl_plist.h>
#include <tovan/log_mark.h>
#include <tovan/log_stream.h>
#include <tovan/logger.h>
#include <tovan/message_digest.h>
#include <tovan/nfs_shared_storage.h>
#include <tovan/nfs_shared_storage_publisher.h>
#include <tovan/nfs_shared_storage_subscriber.h>
#include <tovan/notification_names.h>
#include <tovan/notifications.h>
#include <tovan/plist_updater.h>
#include <tovan/property_list_basic_file.h>
#include <tovan/property_list_file.h>
#include <tovan/service_cache_file.h>
#include <tovan/service_config_file.h>
#include <tovan/service_control.h>
#include <tovan/service_installation.h>
#include <tovan/service_pid_file.h>
#include <tovan/service_schedule.h>
#include <tovan/service_util.h>
#include <tovan/setting_table.h>
#include <tovan/shared_storage.h>
#include <tovan/shared_storage_entries.h>
#include <tovan/shared_storage_exception.h>
#include <tovan/shared_storage_utils.h>
#include <tovan/task.h>
#include <tovan/task2.h>
#include <tovan/time_stamp.h>
#include <tovan/tovan_config_file.h>
#include <tovan/tovan_config_updater.h>
#include <tovan/user_task.h>
#include <tovan/version.h>
