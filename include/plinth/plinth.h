// plinth.h: the whole foundation library. Where to start: shared_object.h (holders), string.h, url.h, exception.h.
#pragma once

#include <plinth/autorelease_pool.h>
#include <plinth/buffer.h>
#include <plinth/conditional_mutex.h>
#include <plinth/data_value.h>
#include <plinth/exception.h>
#include <plinth/export.h>
#include <plinth/input_output_stream.h>
#include <plinth/interval_timer.h>
#include <plinth/mutex.h>
#include <plinth/process_utilities.h>
#include <plinth/shared_cf_ref.h>
#include <plinth/shared_object.h>
#include <plinth/string.h>
#include <plinth/string_utilities.h>
#include <plinth/url.h>
#include <plinth/uuid_string.h>
#include <plinth/xml_service.h>
