import { Enums } from '@cornerstonejs/core';

/**
 * Cornerstone's retrieve configuration for frames: preview, head, exact picture, one after the other. Add it under
 * "stack" (or an image id) to Cornerstone's imageRetrieveMetadataProvider.
 */
export const progressiveStages = {
  stages: [
    { id: 'vintakPreview', retrieveType: 'preview', requestType: Enums.RequestType.Interaction, priority: -10 },
    { id: 'vintakHead', retrieveType: 'head', requestType: Enums.RequestType.Interaction, priority: -5 },
    { id: 'vintakExact', retrieveType: 'exact', requestType: Enums.RequestType.Interaction, priority: 0 },
  ],
  retrieveOptions: {
    preview: { imageQualityStatus: Enums.ImageQualityStatus.SUBRESOLUTION },
    head: { imageQualityStatus: Enums.ImageQualityStatus.LOSSY },
    exact: { imageQualityStatus: Enums.ImageQualityStatus.FULL_RESOLUTION },
    default: { imageQualityStatus: Enums.ImageQualityStatus.FULL_RESOLUTION },
  },
};
