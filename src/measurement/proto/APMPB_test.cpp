#include "measurement/proto/APMPB.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "measurement/APMMonitor.h"

namespace {

// Runs the Debian protoc on `bytes` as `type` of `protoFile` and returns its text output.
std::string protocDecode(const kit::Data& bytes, const std::string& type,
                         const std::string& protoFile) {
  auto path = std::filesystem::temp_directory_path() /
              ("apm_pb_" + std::to_string(::getpid()) + "_" + type + ".bin");
  {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
  }
  std::string command = std::string(APM_PROTOC) + " --decode=" + type + " -I " + APM_PROTO_DIR +
                        " " + protoFile + " < " + path.string() + " 2>&1";
  std::string text;
  if (FILE* pipe = ::popen(command.c_str(), "r")) {
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) text.append(buffer, n);
    EXPECT_EQ(::pclose(pipe), 0) << text;
  } else {
    ADD_FAILURE() << "cannot run " << command;
  }
  std::filesystem::remove(path);
  return text;
}

APMPBEventParam& addParam(APMPBEvent& event, const char* name) {
  APMPBEventParam& param = APMPBAppend(&event.params, &event.params_count);
  APMPBSetString(&param.name, name);
  return param;
}

// A bundle with nested items, user properties, an audience result and the fields whose
// declaration order differs from their tag order.
APMPBMessage<APMPBMeasurementBundle> sampleBundle() {
  APMPBMessage<APMPBMeasurementBundle> bundle;
  bundle->has_protocol_version = true;
  bundle->protocol_version = 1;
  APMPBEvent& event = APMPBAppend(&bundle->events, &bundle->events_count);
  APMPBSetString(&event.name, "purchase");
  event.has_timestamp_millis = true;
  event.timestamp_millis = 1735689600123;
  APMPBEventParam& value = addParam(event, "value");
  value.has_double_value = true;
  value.double_value = 9.5;
  APMPBEventParam& items = addParam(event, "items");
  APMPBEventParam& item = APMPBAppend(&items.param_value, &items.param_value_count);
  APMPBEventParam& itemName = APMPBAppend(&item.param_value, &item.param_value_count);
  APMPBSetString(&itemName.name, "item_name");
  APMPBSetString(&itemName.string_value, "caf\u00e9");
  APMPBUserAttribute& property =
      APMPBAppend(&bundle->user_properties, &bundle->user_properties_count);
  APMPBSetString(&property.name, "_id");
  APMPBSetString(&property.string_value, "u1");
  bundle->has_bundle_end_timestamp_millis = true;
  bundle->bundle_end_timestamp_millis = 1735689600123;
  bundle->has_previous_bundle_start_timestamp_millis = true;
  bundle->previous_bundle_start_timestamp_millis = 1735680000000;
  APMPBSetString(&bundle->platform, "ios");
  APMPBSetString(&bundle->vendor_device_id, "V-1");
  APMPBSetString(&bundle->app_id, "com.example.app");
  APMPBAudienceLeafFilterResult& result =
      APMPBAppend(&bundle->audience_evaluation_results, &bundle->audience_evaluation_results_count);
  result.has_audience_id = true;
  result.audience_id = 7;
  result.has_current_data = true;
  APMPBAppend(&result.current_data.status, &result.current_data.status_count) = 3;
  APMPBAppend(&bundle->experiment_ids, &bundle->experiment_ids_count) = 42;
  APMPBAppendString(&bundle->redacted_fields, &bundle->redacted_fields_count, "device_model");
  return bundle;
}

TEST(APMPBTest, BundleRoundTripsThroughItsWireForm) {
  auto bundle = sampleBundle();
  auto bytes = bundle.protoBuffer();
  ASSERT_TRUE(bytes);
  auto parsed = APMPBMessage<APMPBMeasurementBundle>::parseFromData(*bytes);
  ASSERT_TRUE(parsed);
  EXPECT_EQ((*parsed)->events_count, 1);
  const APMPBEventParam& items = (*parsed)->events[0].params[1];
  EXPECT_EQ(APMPBString(items.name), "items");
  EXPECT_EQ(APMPBString(items.param_value[0].param_value[0].string_value), "caf\u00e9");
  EXPECT_EQ(APMPBString((*parsed)->vendor_device_id), "V-1");
  EXPECT_EQ((*parsed)->previous_bundle_start_timestamp_millis, 1735680000000);
  EXPECT_EQ((*parsed)->experiment_ids[0], 42u);
  // A deep copy survives the original.
  auto copy = parsed->copy();
  parsed.reset();
  EXPECT_EQ(copy.protoBuffer(), bytes);
}

TEST(APMPBTest, BundleBytesAreStandardProtocolBuffers) {
  auto bytes = sampleBundle().protoBuffer();
  ASSERT_TRUE(bytes);
  EXPECT_EQ(protocDecode(*bytes, "apm.MeasurementBundle", "measurement.proto"),
            "protocol_version: 1\n"
            "events {\n"
            "  params {\n"
            "    name: \"value\"\n"
            "    double_value: 9.5\n"
            "  }\n"
            "  params {\n"
            "    name: \"items\"\n"
            "    param_value {\n"
            "      param_value {\n"
            "        name: \"item_name\"\n"
            "        string_value: \"caf\\303\\251\"\n"
            "      }\n"
            "    }\n"
            "  }\n"
            "  name: \"purchase\"\n"
            "  timestamp_millis: 1735689600123\n"
            "}\n"
            "user_properties {\n"
            "  name: \"_id\"\n"
            "  string_value: \"u1\"\n"
            "}\n"
            "bundle_end_timestamp_millis: 1735689600123\n"
            "platform: \"ios\"\n"
            "app_id: \"com.example.app\"\n"
            "previous_bundle_start_timestamp_millis: 1735680000000\n"
            "vendor_device_id: \"V-1\"\n"
            "audience_evaluation_results {\n"
            "  audience_id: 7\n"
            "  current_data {\n"
            "    status: 3\n"
            "  }\n"
            "}\n"
            "experiment_ids: 42\n"
            "redacted_fields: \"device_model\"\n");
}

TEST(APMPBTest, ConfigurationBytesAreStandardProtocolBuffers) {
  APMPBMessage<APMPBMeasurementConfig> config;
  config->has_version = true;
  config->version = 12;
  APMPBSetString(&config->stuvop_app_id, "1:123:ios:abc");
  APMPBSetting& setting = APMPBAppend(&config->settings, &config->settings_count);
  APMPBSetString(&setting.key, "measurement.upload.retry_count");
  APMPBSetString(&setting.value, "5000");
  APMPBEventConfig& eventConfig = APMPBAppend(&config->event_config, &config->event_config_count);
  APMPBSetString(&eventConfig.name, "level_up");
  eventConfig.has_blocked = true;
  eventConfig.blocked = true;
  eventConfig.has_sampling_rate = true;
  eventConfig.sampling_rate = 10;
  APMPBAudience& audience = APMPBAppend(&config->audiences, &config->audiences_count);
  audience.has_audience_id = true;
  audience.audience_id = 3;
  APMPBEventFilter& filter = APMPBAppend(&audience.event_filters, &audience.event_filters_count);
  filter.has_filter_id = true;
  filter.filter_id = 64;
  APMPBSetString(&filter.event_name, "purchase");
  filter.has_event_count_filter = true;
  filter.event_count_filter.has_comparison_type = true;
  filter.event_count_filter.comparison_type = 2;
  APMPBSetString(&filter.event_count_filter.comparison_value, "1.");
  APMPBDataControl& control = APMPBAppend(&config->data_controls, &config->data_controls_count);
  APMPBSetString(&control.name, "device_info");
  APMPBSetString(&config->upload_sub_domain, "eu");
  auto bytes = config.protoBuffer();
  ASSERT_TRUE(bytes);
  EXPECT_EQ(protocDecode(*bytes, "apm.MeasurementConfig", "config.proto"),
            "version: 12\n"
            "stuvop_app_id: \"1:123:ios:abc\"\n"
            "settings {\n"
            "  key: \"measurement.upload.retry_count\"\n"
            "  value: \"5000\"\n"
            "}\n"
            "event_config {\n"
            "  name: \"level_up\"\n"
            "  blocked: true\n"
            "  sampling_rate: 10\n"
            "}\n"
            "audiences {\n"
            "  audience_id: 3\n"
            "  event_filters {\n"
            "    filter_id: 64\n"
            "    event_name: \"purchase\"\n"
            "    event_count_filter {\n"
            "      comparison_type: 2\n"
            "      comparison_value: \"1.\"\n"
            "    }\n"
            "  }\n"
            "}\n"
            "data_controls {\n"
            "  name: \"device_info\"\n"
            "}\n"
            "upload_sub_domain: \"eu\"\n");
}

TEST(APMPBTest, ProgramBytesAreStandardProtocolBuffers) {
  APMPBMessage<APMPBProgram> program;
  // A statement (command 0, add) with two scalar arguments, nested inside an array.
  APMPBRuntimeEntity& array = APMPBAppend(&program->instructions, &program->instructions_count);
  array.has_kind = true;
  array.kind = 2;
  APMPBRuntimeEntity& statement = APMPBAppend(&array.children, &array.children_count);
  statement.has_kind = true;
  statement.kind = 1;
  APMPBSetString(&statement.string_value, "0");
  APMPBRuntimeEntity& text = APMPBAppend(&statement.children, &statement.children_count);
  APMPBSetString(&text.string_value, "1");
  APMPBRuntimeEntity& number = APMPBAppend(&statement.children, &statement.children_count);
  number.has_number_value = true;
  number.number_value = 2;
  program->has_ogt_activities = true;
  APMPBOgtActivity& activity =
      APMPBAppend(&program->ogt_activities.activities, &program->ogt_activities.activities_count);
  APMPBSetString(&activity.name, "rule");
  auto bytes = program.protoBuffer();
  ASSERT_TRUE(bytes);
  EXPECT_EQ(protocDecode(*bytes, "apm.Program", "runtime.proto"),
            "instructions {\n"
            "  kind: 2\n"
            "  children {\n"
            "    kind: 1\n"
            "    children {\n"
            "      string_value: \"1\"\n"
            "    }\n"
            "    children {\n"
            "      number_value: 2\n"
            "    }\n"
            "    string_value: \"0\"\n"
            "  }\n"
            "}\n"
            "ogt_activities {\n"
            "  activities {\n"
            "    name: \"rule\"\n"
            "  }\n"
            "}\n");
  auto parsed = APMPBMessage<APMPBProgram>::parseFromData(*bytes);
  ASSERT_TRUE(parsed);
  EXPECT_EQ((*parsed)->instructions[0].children[0].children[1].number_value, 2);
}

TEST(APMPBTest, MessagesOverTheStreamLimitAreRefusedBothWays) {
  APMMonitorCapture monitor;
  auto bundle = sampleBundle();
  auto bytes = bundle.protoBuffer();
  ASSERT_TRUE(bytes);
  std::size_t limit = bytes->size() - 1;
  std::string expected = "Unable to process proto stream. Buffer is too big. " +
                         std::to_string(bytes->size()) + " > " + std::to_string(limit);

  platform::Error error;
  EXPECT_FALSE(bundle.protoBuffer(&error, limit));
  EXPECT_EQ(error.localizedDescription, expected);
  error = {};
  EXPECT_FALSE(APMPBMessage<APMPBMeasurementBundle>::parseFromData(*bytes, &error, limit));
  EXPECT_EQ(error.localizedDescription, expected);
  EXPECT_EQ(monitor.count(expected), 2);
  // Exactly at the limit passes.
  EXPECT_TRUE(APMPBMessage<APMPBMeasurementBundle>::parseFromData(*bytes, nullptr, bytes->size()));
}

TEST(APMPBTest, BytesThatAreNoMessageDoNotParse) {
  auto bytes = sampleBundle().protoBuffer();
  ASSERT_TRUE(bytes);
  kit::Data truncated(bytes->begin(), bytes->begin() + static_cast<long>(bytes->size() / 2));
  platform::Error error;
  EXPECT_FALSE(APMPBMessage<APMPBMeasurementBundle>::parseFromData(truncated, &error));
  EXPECT_EQ(error.domain, "com.stuvop.smp.measurement.ErrorDomain");
  EXPECT_FALSE(APMPBMessage<APMPBMeasurementBundle>::parseFromData(kit::Data{0xff, 0xff, 0xff}));
}

TEST(APMPBTest, FlagHoldsOneOfFourKinds) {
  APMPBMessage<APMPBFlag> flag;
  APMPBSetString(&flag->name, "network_background_session_enabled");
  flag->which_value = apm_Flag_string_value_tag;
  APMPBSetString(&flag->value.string_value, "on");
  auto bytes = flag.protoBuffer();
  ASSERT_TRUE(bytes);
  auto parsed = APMPBMessage<APMPBFlag>::parseFromData(*bytes);
  ASSERT_TRUE(parsed);
  EXPECT_EQ((*parsed)->which_value, apm_Flag_string_value_tag);
  EXPECT_EQ(APMPBString((*parsed)->value.string_value), "on");
}

}  // namespace

TEST(APMPBTest, ABatchFramedFromItsBundlesIsTheBatchWrittenWhole) {
  APMPBMessage<APMPBMeasurementBatch> batch;
  kit::Data framed;
  for (const char* id : {"com.example.a", "com.example.b"}) {
    APMPBMeasurementBundle& b = APMPBAppend(&batch->bundles, &batch->bundles_count);
    APMPBSetString(&b.app_id, id);
    APMPBSetString(&b.monitoring_data, std::string(200, 'm'));  // a length over one varint byte
    APMPBSetString(&b.consent_signals, "G111");
    kit::Data bytes;
    ASSERT_TRUE(APMPBEncode(APMPBMessage<APMPBMeasurementBundle>::fields(), &b, &bytes, nullptr));
    APMPBAppendLengthDelimited(&framed, 1, bytes);
  }
  EXPECT_EQ(framed, *batch.protoBuffer());

  // What follows a field: here the consent signals (tag 52, two key bytes, one length byte).
  const APMPBMeasurementBundle& b = batch->bundles[0];
  EXPECT_EQ(APMPBEncodedSizeAfterField(b, 47), 2u + 1u + 4u);
  EXPECT_EQ(APMPBEncodedSizeAfterField(b, 65), 0u);
  // After tag 1 (absent): the whole bundle, its frame (a key byte, two length bytes) aside.
  EXPECT_EQ(APMPBEncodedSizeAfterField(b, 1), framed.size() / 2 - 3);
  EXPECT_FALSE(APMPBEncodedSizeAfterField(b, 99));  // not a field
  EXPECT_TRUE(APMPBWithinStreamLimit(10, 10, nullptr));
  platform::Error error;
  EXPECT_FALSE(APMPBWithinStreamLimit(11, 10, &error));
  EXPECT_EQ(error.localizedDescription, "Unable to process proto stream. Buffer is too big. 11 > 10");
}

TEST(APMPBTest, TheDirectBundleWriterWritesWhatTheSerialiserWrites) {
  auto param = [](APMPBEventParam& p, const char* name) { APMPBSetString(&p.name, name); };
  for (int shape = 0; shape < 4; ++shape) {
    APMPBMessage<APMPBMeasurementBundle> b;
    APMPBSetString(&b->app_id, "com.example.app");
    b->has_protocol_version = shape != 1;
    b->protocol_version = 1;
    APMPBUserAttribute& u = APMPBAppend(&b->user_properties, &b->user_properties_count);
    APMPBSetString(&u.name, "_id");
    APMPBSetString(&u.string_value, "");
    for (int i = 0; shape != 2 && i < 40; ++i) {
      APMPBEvent& e = APMPBAppend(&b->events, &b->events_count);
      if (i % 7 != 3) APMPBSetString(&e.name, i % 5 ? "bench_event" : "");
      e.has_timestamp_millis = i % 4 != 0;
      e.timestamp_millis = 1735689600000 + i * 977;
      e.has_previous_timestamp_millis = i % 3 == 0;
      e.previous_timestamp_millis = -i;  // ten bytes on the wire
      e.has_count = i % 6 == 0;
      e.count = i % 12 ? -5 : 300;
      APMPBEventParam& s = APMPBAppend(&e.params, &e.params_count);
      param(s, "item");
      APMPBSetString(&s.string_value, std::string(static_cast<std::size_t>(i * 7), 's'));
      APMPBEventParam& n = APMPBAppend(&e.params, &e.params_count);
      param(n, "level");
      n.has_int_value = true;
      n.int_value = i % 2 ? i : -i;
      n.has_float_value = i % 5 == 1;
      n.float_value = 0.25f;
      n.has_double_value = i % 2 == 0;
      n.double_value = -1.5e300;
      APMPBEventParam& items = APMPBAppend(&e.params, &e.params_count);
      param(items, "items");
      for (int k = 0; k < i % 3; ++k) {
        APMPBEventParam& item = APMPBAppend(&items.param_value, &items.param_value_count);
        APMPBEventParam& inner = APMPBAppend(&item.param_value, &item.param_value_count);
        param(inner, "item_id");
        APMPBSetString(&inner.string_value, "x");
      }
    }
    if (shape == 3) {
      APMPBSetString(&b->consent_signals, "G111");
      APMPBAppendString(&b->redacted_fields, &b->redacted_fields_count, "os_version");
      b->has_checksum = true;
      b->checksum = -42;
    }
    kit::Data expected;
    ASSERT_TRUE(APMPBEncode(APMPBMessage<APMPBMeasurementBundle>::fields(), b.get(), &expected, nullptr));
    kit::Data direct;
    ASSERT_TRUE(APMPBEncodeBundle(*b, &direct, nullptr)) << shape;
    EXPECT_EQ(direct, expected) << shape;
    // The same refusal over the limit.
    platform::Error error;
    EXPECT_FALSE(APMPBEncodeBundle(*b, &direct, &error, expected.size() - 1));
    EXPECT_EQ(error.localizedDescription, "Unable to process proto stream. Buffer is too big. " +
                                              std::to_string(expected.size()) + " > " +
                                              std::to_string(expected.size() - 1));
  }
}
