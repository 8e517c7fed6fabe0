-- SPDX-License-Identifier: Apache-2.0
-- Devices of each country and model that had a failure, the most frequent ones.
SELECT country, model, count(DISTINCT device) AS failed_devices
FROM episodes
WHERE (:country = '' OR country = :country) AND begin >= :since
    AND (:signature = '' OR signature = :signature)
GROUP BY country, model
ORDER BY failed_devices DESC, country, model
LIMIT :most
