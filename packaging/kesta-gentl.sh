# KESTA GenTL producer: GenTL consumers find GenTL_KESTA.cti through
# GENICAM_GENTL64_PATH. Its folder holds no other producer.
case ":${GENICAM_GENTL64_PATH:-}:" in
*:@KESTA_PRODUCER_DIR@:*) ;;
*) export GENICAM_GENTL64_PATH="@KESTA_PRODUCER_DIR@${GENICAM_GENTL64_PATH:+:$GENICAM_GENTL64_PATH}" ;;
esac
