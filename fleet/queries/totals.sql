-- SPDX-License-Identifier: Apache-2.0
-- Devices with a failure, and their episodes.
SELECT count(*) AS failed_devices, sum(episodes_of_device) AS all_episodes
FROM (
    SELECT device, count(*) AS episodes_of_device
    FROM episodes
    WHERE (:country = '' OR country = :country) AND begin >= :since
        AND (:signature = '' OR signature = :signature)
    GROUP BY device
) AS failed
