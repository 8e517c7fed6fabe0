-- SPDX-License-Identifier: Apache-2.0
-- Signatures by the devices that they were seen on, the most frequent ones.
SELECT signature, count(DISTINCT device) AS affected_devices
FROM episodes
WHERE (:country = '' OR country = :country) AND begin >= :since
    AND (:signature = '' OR signature = :signature)
GROUP BY signature
ORDER BY affected_devices DESC, signature
LIMIT :most
