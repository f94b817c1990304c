include $(sort $(wildcard $(BR2_EXTERNAL_ZONDAR_PATH)/package/*/*.mk))
