#include "fact/CampaignSchema.h"

namespace fact {

const std::string CampaignSchema::kSchema = R"({
  "$schema": "http://json-schema.org/draft-04/schema#",
  "type": "object",
  "additionalProperties": false,
  "required": ["upload_frequency", "campaign_id", "data_producer", "cohort_filters",
               "differential_privacy_config", "data", "data_producer_config",
               "fact_compatibility_id"],
  "properties": {
    "upload_frequency": {
      "type": "array",
      "minItems": 1,
      "maxItems": 2,
      "items": {
        "type": "object",
        "additionalProperties": false,
        "required": ["type", "value"],
        "properties": {
          "type": {"type": "string", "enum": ["size_kb", "time_seconds"]},
          "value": {"type": "integer"}
        }
      }
    },
    "campaign_id": {"type": "string", "minLength": 1},
    "data_producer": {"type": "string", "minLength": 1},
    "cohort_filters": {
      "type": "array",
      "minItems": 1,
      "items": {"type": "string", "minLength": 1}
    },
    "differential_privacy_config": {
      "type": "object",
      "additionalProperties": false,
      "required": ["epsilon", "cohort_size", "config_version"],
      "properties": {
        "epsilon": {"type": "number"},
        "cohort_size": {"type": "integer"},
        "config_version": {"type": "integer"}
      }
    },
    "data": {
      "type": "array",
      "minItems": 1,
      "items": {
        "type": "object",
        "additionalProperties": false,
        "required": ["analytics_name", "aggregation_function", "datatype", "attributes"],
        "properties": {
          "analytics_name": {"type": "string", "minLength": 1},
          "aggregation_function": {"type": "string", "minLength": 1},
          "datatype": {"type": "string", "minLength": 1},
          "attributes": {
            "type": "array",
            "minItems": 1,
            "uniqueItems": true,
            "items": {
              "type": "object",
              "additionalProperties": false,
              "required": ["name", "type", "bins", "bin_type"],
              "properties": {
                "name": {"type": "string", "minLength": 1},
                "type": {
                  "type": "string",
                  "enum": ["uint32", "uint64", "int32", "int64", "double", "string", "bool"]
                },
                "bin_type": {"type": "string", "enum": ["range", "enum"]},
                "bins": {
                  "type": "array",
                  "minItems": 1,
                  "uniqueItems": true,
                  "items": {
                    "oneOf": [
                      {
                        "type": "object",
                        "additionalProperties": false,
                        "required": ["max", "min", "name", "include_max"],
                        "properties": {
                          "max": {"type": ["integer", "number"]},
                          "min": {"type": ["integer", "number"]},
                          "name": {"type": "string", "minLength": 1},
                          "include_max": {"type": "boolean"}
                        }
                      },
                      {"type": "string", "minLength": 1}
                    ]
                  }
                }
              }
            }
          }
        }
      }
    },
    "data_producer_config": {"type": "object", "additionalProperties": true},
    "fact_compatibility_id": {"type": "integer", "const": 1}
  }
})";

}  // namespace fact
