include $(sort $(wildcard $(BR2_EXTERNAL_DUNMALLOW_PATH)/package/*/*.mk))
